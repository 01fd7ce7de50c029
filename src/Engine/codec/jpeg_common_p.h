// SPDX-License-Identifier: MIT
// libjpeg plumbing shared by the whole-picture decoder and the row reader: errors that jump back instead of
// exiting, quiet warnings that remember where the data ran out, a cap on progressive scans, DCT scaling.
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

namespace voimg::detail {

struct JpegErrorManager {
    jpeg_error_mgr pub;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
    // Where the data ran out, if it did: scan number and iMCU row being read at that moment.
    bool sawEof = false;
    int eofScan = 0;
    JDIMENSION eofImcuRow = 0;
};

// Points `cinfo` at `err` and `progress`; fatal errors then longjmp to err.jump with err.message set.
void installJpegHandlers(jpeg_decompress_struct& cinfo, JpegErrorManager& err, jpeg_progress_mgr& progress);

// libjpeg's largest supported reduction (1, 2, 4 or 8) not above the requested one.
[[nodiscard]] unsigned jpegDctDenominator(int requested);

// True when the data ended inside the first iMCU row of the first scan: nothing real was decoded.
[[nodiscard]] bool jpegEndedBeforeAnyRow(const JpegErrorManager& err);

}  // namespace voimg::detail
