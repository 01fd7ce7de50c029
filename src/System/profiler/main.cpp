// SPDX-License-Identifier: MIT
// vo_system_profiler: reports the machine's hardware, graphics and software.
//
//   vo_system_profiler [-xml] [DATATYPE...]
//   vo_system_profiler -listDataTypes
//
// With -xml the report is an XML property list: an array with one dictionary per section. Without
// data types every section is reported; with them only the ones named (unknown names are skipped).
#include <QVariantList>
#include <QVariantMap>
#include <cstdio>
#include <string>
#include <vector>

#include "System/VoPropertyList_p.h"
#include "System/profiler/profile_sections.h"

namespace {

int usage() {
    std::fprintf(stderr,
                 "usage: vo_system_profiler [-xml] [DATATYPE...]\n"
                 "       vo_system_profiler -listDataTypes\n");
    return 1;
}

// The plain-text report: each section's items as indented "key: value" lines.
void printText(const QVariant& value, int indent) {
    const std::string pad(size_t(indent) * 4, ' ');
    if (value.typeId() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            if (it.key().startsWith(u'_')) continue;
            const int type = it.value().typeId();
            if (type == QMetaType::QVariantMap || type == QMetaType::QVariantList) {
                std::printf("%s%s:\n", pad.c_str(), qPrintable(it.key()));
                printText(it.value(), indent + 1);
            } else {
                std::printf("%s%s: %s\n", pad.c_str(), qPrintable(it.key()), qPrintable(it.value().toString()));
            }
        }
    } else if (value.typeId() == QMetaType::QVariantList) {
        for (const QVariant& item : value.toList()) {
            const QString name = item.toMap().value(QStringLiteral("_name")).toString();
            std::printf("%s%s:\n", pad.c_str(), qPrintable(name.isEmpty() ? QStringLiteral("item") : name));
            printText(item, indent + 1);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    bool xml = false;
    std::vector<std::string> dataTypes;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-xml") {
            xml = true;
        } else if (arg == "-listDataTypes") {
            for (const std::string& type : vo::profiler::knownDataTypes()) std::printf("%s\n", type.c_str());
            return 0;
        } else if (!arg.empty() && arg[0] == '-') {
            return usage();
        } else {
            dataTypes.push_back(arg);
        }
    }

    const QVariantList sections = vo::profiler::profile(dataTypes, "/");
    if (xml) {
        const std::string text = vo::detail::xmlPropertyList(sections);
        std::fwrite(text.data(), 1, text.size(), stdout);
    } else {
        for (const QVariant& section : sections) {
            std::printf("%s:\n", qPrintable(section.toMap().value(QStringLiteral("_dataType")).toString()));
            printText(section.toMap().value(QStringLiteral("_items")), 1);
            std::printf("\n");
        }
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
