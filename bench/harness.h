// harness.h - what the subcommands of ozmbench share: timing and its
// statistics, report lines, files, text conversion, options, the region
// that callgrind counts and the count of operator new. peer_bench uses the
// timing and the files too.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "gendoc.h"
#include "xmlapi.h"

namespace ozmbench {

// Timing. Times are wall-clock (steady_clock) unless told to be CPU time.

using Clock = std::chrono::steady_clock;

inline double Seconds(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double>(b - a).count();
}

// CPU time of the calling thread: on a shared machine it leaves out the
// time the thread waits for a core.
double ThreadSeconds();

// The seconds of repeated runs of one piece of work.
struct Timing {
    std::vector<double> runs;
    double Best() const;
    double Median() const;  // of an even count, the mean of the middle two
    // Runs work once, timed; returns its seconds.
    template <class Work>
    double Time(Work&& work) {
        const Clock::time_point a = Clock::now();
        work();
        runs.push_back(Seconds(a, Clock::now()));
        return runs.back();
    }
};

// work timed repeat times; prepare, if given, runs before each, untimed.
template <class Work, class Prepare>
Timing Repeat(int repeat, Work&& work, Prepare&& prepare) {
    Timing t;
    for (int i = 0; i < repeat; ++i) {
        prepare();
        t.Time(work);
    }
    return t;
}
template <class Work>
Timing Repeat(int repeat, Work&& work) {
    return Repeat(repeat, work, [] {});
}

// MB (1e6 bytes) per second.
inline double Rate(size_t bytes, double seconds) { return double(bytes) / 1e6 / seconds; }

// "  what   best R MB/s (s)   median R MB/s (s)" of bytes of input.
void PrintRate(const char* what, const Timing& t, size_t bytes);

// Files and text.

bool ReadFile(const std::string& path, std::string& out);
bool WriteFile(const std::string& path, const std::string& bytes);

// A new directory under /tmp, removed with all it holds when this goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& Path() const { return m_path; }
    std::string File(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

UCString Decode(const std::string& utf8);
void Decode(const std::string& utf8, UCString& out);
std::string Utf8(const UCChar* text);
// stem followed by the decimal digits of i.
UCString Numbered(const UCChar* stem, int i);

// Prints "PARSE FAILED (what): error CODE at line L, column C: MESSAGE" and
// ends the program with status 1, unless result is errNone.
void CheckParse(const XmlDocument& doc, BATCHERR result, const char* what = nullptr);
// Prints "ozmbench: what" on standard error and ends with status 1.
[[noreturn]] void Fail(const std::string& what);

// Options: "--name value" pairs and "--flag"s after the subcommand.

struct Option {
    const char* name;
    bool* flag;                              // set for a flag
    std::function<bool(const char*)> set;    // for a value; false: a bad value
};
Option Flag(const char* name, bool& v);
Option Text(const char* name, std::string& v);
// A number of at least min (doubles: more than 0).
Option Number(const char* name, int& v, long min = 1);
Option Number(const char* name, long& v, long min = 1);
Option Number(const char* name, size_t& v, long min = 1);
Option Number(const char* name, double& v);

// Sets the options of args[first..]; prints the usage of the subcommand and
// ends with status 2 on anything else.
void ParseOptions(int argc, char** argv, int first, const std::vector<Option>& options);
[[noreturn]] void Usage(const char* command);

// The counted region: ozm_bench_region runs work exactly once between
// callgrind's start and stop instrumentation requests (valgrind with
// --instr-atstart=no); never inlined, so that where those requests were not
// compiled in, callgrind can toggle collection on its name instead.

extern "C" void ozm_bench_region(void (*work)(void*), void* context);
template <class Work>
void Region(Work& work) {
    ozm_bench_region([](void* w) { (*static_cast<Work*>(w))(); }, &work);
}
bool CallgrindRequests();  // built with <valgrind/callgrind.h>

// The count of operator new. ozmbench replaces the global allocation
// functions with ones that keep the live bytes (malloc_usable_size) and
// blocks of everything allocated through operator new, in the harness and
// in the library alike; ozmbench_nocount keeps the C++ library's own, so
// that an allocator preloaded in front of malloc serves operator new itself.
// Counting is on from the start and stays on only for the parse measure.

struct NewCount {
    size_t bytes = 0;
    size_t blocks = 0;
};
bool NewCounted();          // this build counts operator new
NewCount LiveNew();
void CountNew(bool on);

// The subcommands; argv[0] is the subcommand's name.

int ParseCommand(int argc, char** argv);
int ReuseCommand(int argc, char** argv);
int AllocCommand(int argc, char** argv);
int DtdCommand(int argc, char** argv);
int DtdWriteCommand(int argc, char** argv);
int GenerateCommand(int argc, char** argv);
int WriteCommand(int argc, char** argv);
int ValidateCommand(int argc, char** argv);

}  // namespace ozmbench
