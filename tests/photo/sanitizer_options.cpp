// SPDX-License-Identifier: MIT
// Sanitizer settings compiled into the photo tests.
//
// The photo image runs on one thread; every other thread in these tests is Qt's own (the workers of its
// image scaling and painting). Qt is not built with ThreadSanitizer, so the synchronisation between those
// threads is invisible to it: races reported inside Qt are ignored here, and only here.
extern "C" const char* __tsan_default_suppressions() {
    return "race:libQt6Gui.so\n"
           "race:libQt6Core.so\n";
}
