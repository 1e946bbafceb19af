// harness.cpp - timing, files, text and the counted region of harness.h.
#include "harness.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#ifdef OZM_HAVE_CALLGRIND_H
#include <valgrind/callgrind.h>
#define OZM_REGION_START() CALLGRIND_START_INSTRUMENTATION
#define OZM_REGION_STOP() CALLGRIND_STOP_INSTRUMENTATION
#else
#define OZM_REGION_START() ((void)0)
#define OZM_REGION_STOP() ((void)0)
#endif

namespace ozmbench {

double ThreadSeconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

double Timing::Best() const { return *std::min_element(runs.begin(), runs.end()); }

double Timing::Median() const {
    std::vector<double> s = runs;
    std::sort(s.begin(), s.end());
    const size_t n = s.size();
    return n % 2 ? s[n / 2] : (s[n / 2 - 1] + s[n / 2]) / 2;
}

void PrintRate(const char* what, const Timing& t, size_t bytes) {
    std::printf("  %-22s best %9.2f MB/s (%8.4f s)   median %9.2f MB/s (%8.4f s)\n", what, Rate(bytes, t.Best()),
                t.Best(), Rate(bytes, t.Median()), t.Median());
}

bool ReadFile(const std::string& path, std::string& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

bool WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), std::streamsize(bytes.size()));
    return bool(out.flush());
}

TempDir::TempDir() {
    char pattern[] = "/tmp/ozmbench.XXXXXX";
    if (!::mkdtemp(pattern))
        Fail("no temporary directory");
    m_path = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

void Decode(const std::string& utf8, UCString& out) {
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size(), out);
}

UCString Decode(const std::string& utf8) {
    UCString out;
    Decode(utf8, out);
    return out;
}

std::string Utf8(const UCChar* text) {
    std::string out;
    OzmGlob::WStringToString(UCString(text), out, csetUTF8);
    return out;
}

UCString Numbered(const UCChar* stem, int i) { return stem + Decode(std::to_string(i)); }

void CheckParse(const XmlDocument& doc, BATCHERR result, const char* what) {
    if (result == errNone)
        return;
    std::printf("PARSE FAILED%s%s%s: error %d at line %d, column %d: %s\n", what ? " (" : "", what ? what : "",
                what ? ")" : "", int(result), doc.ErrorLine(), doc.ErrorCol(), Utf8(doc.ErrorMessage()).c_str());
    std::fflush(stdout);
    std::exit(1);
}

void Fail(const std::string& what) {
    std::fprintf(stderr, "ozmbench: %s\n", what.c_str());
    std::exit(1);
}

extern "C" __attribute__((noinline)) void ozm_bench_region(void (*work)(void*), void* context) {
    OZM_REGION_START();
    work(context);
    OZM_REGION_STOP();
}

bool CallgrindRequests() {
#ifdef OZM_HAVE_CALLGRIND_H
    return true;
#else
    return false;
#endif
}

}  // namespace ozmbench
