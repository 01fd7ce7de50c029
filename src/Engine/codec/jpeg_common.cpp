// SPDX-License-Identifier: MIT
#include "jpeg_common_p.h"

#include <csetjmp>

#include <jerror.h>

namespace voimg::detail {
namespace {

// Files with absurd numbers of progressive scans take ages to decode for no benefit; real files have < 20.
constexpr int kMaxScans = 1000;

[[noreturn]] void errorExit(j_common_ptr cinfo) {
    auto* mgr = reinterpret_cast<JpegErrorManager*>(cinfo->err);
    cinfo->err->format_message(cinfo, mgr->message);
    std::longjmp(mgr->jump, 1);
}

// Warnings (corrupt data, premature end) are not printed; only the first end-of-data is remembered.
void emitMessage(j_common_ptr cinfo, int level) {
    auto* mgr = reinterpret_cast<JpegErrorManager*>(cinfo->err);
    if (level >= 0 || cinfo->err->msg_code != JWRN_JPEG_EOF || mgr->sawEof) return;
    auto* dinfo = reinterpret_cast<j_decompress_ptr>(cinfo);
    mgr->sawEof = true;
    mgr->eofScan = dinfo->input_scan_number;
    mgr->eofImcuRow = dinfo->input_iMCU_row;
}

void progressMonitor(j_common_ptr cinfo) {
    if (reinterpret_cast<j_decompress_ptr>(cinfo)->input_scan_number > kMaxScans) {
        cinfo->err->msg_code = JERR_BAD_SCAN_SCRIPT;
        auto* mgr = reinterpret_cast<JpegErrorManager*>(cinfo->err);
        std::snprintf(mgr->message, sizeof mgr->message, "too many progressive scans");
        std::longjmp(mgr->jump, 1);
    }
}

}  // namespace

void installJpegHandlers(jpeg_decompress_struct& cinfo, JpegErrorManager& err, jpeg_progress_mgr& progress) {
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = errorExit;
    err.pub.emit_message = emitMessage;
    progress.progress_monitor = progressMonitor;
    cinfo.progress = &progress;
}

unsigned jpegDctDenominator(int requested) {
    if (requested >= 8) return 8;
    if (requested >= 4) return 4;
    if (requested >= 2) return 2;
    return 1;
}

bool jpegEndedBeforeAnyRow(const JpegErrorManager& err) {
    return err.sawEof && err.eofScan <= 1 && err.eofImcuRow == 0;
}

}  // namespace voimg::detail
