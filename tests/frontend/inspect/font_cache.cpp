// What the font library keeps for the whole process hangs on pointers that the leak check cannot
// follow. It does not grow with the pages.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\n";
}
