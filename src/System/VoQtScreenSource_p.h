// SPDX-License-Identifier: MIT
// The conversions behind the Qt screen source.
#pragma once

#include <QRect>
#include <QString>
#include <cstdint>

#include "Common/CoreGraphics/VoGeometry.h"

namespace vo::detail {

// A rectangle of Qt's virtual desktop (origin top left, y down) in global coordinates: origin at the
// lower left of `mainGeometry`, y up.
[[nodiscard]] NSRect globalRectFromQt(const QRect& rect, const QRect& mainGeometry);

// A screen number from the screen's identity (FNV-1a of its name, manufacturer, model and serial
// number); never 0.
[[nodiscard]] std::uint32_t screenNumberFor(const QString& name, const QString& manufacturer, const QString& model,
                                            const QString& serialNumber);

}  // namespace vo::detail
