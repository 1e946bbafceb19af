// fuzz_files.cpp - the scratch directory of the fuzz targets: a fresh
// directory per process with copies of fuzz/files, removed at exit.
#include <filesystem>

#include "fuzz_common.h"

namespace fuzz {

namespace {

std::string g_dir;

void RemoveScratch() {
    std::error_code ec;
    std::filesystem::remove_all(g_dir, ec);
}

}  // namespace

const std::string& ScratchDir() {
    if (g_dir.empty()) {
        std::string pattern = (std::filesystem::temp_directory_path() / "ozmfuzz.XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            abort();
        g_dir = pattern;
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(OZM_FUZZ_FILES, ec))
            std::filesystem::copy_file(entry.path(), std::filesystem::path(g_dir) / entry.path().filename(), ec);
        atexit(RemoveScratch);
    }
    return g_dir;
}

}  // namespace fuzz

// Documents read from strings find the external files by bare names too:
// such names are taken relative to the working directory.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (chdir(fuzz::ScratchDir().c_str()) != 0)
        abort();
    return 0;
}
