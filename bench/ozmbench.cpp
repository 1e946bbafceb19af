// ozmbench - the benchmarks of the library, one subcommand per measure
// (bench/README.md tells what each measures):
//
//   ozmbench SUBCOMMAND [OPTIONS]
//   ozmbench --callgrind-support      (yes: built with callgrind's requests)
//
// This file reads the options and dispatches; harness.h has what the
// subcommands share.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "harness.h"

namespace ozmbench {
namespace {

struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
    const char* usage;
};

const Command kCommands[] = {
    {"parse", ParseCommand,
     "ozmbench parse [--size MB] [--repeat N] [--text] [--plain] [--file PATH] [--write PATH]\n"
     "ozmbench parse --once decode|parse|both [--size MB] [--text] [--plain] [--file PATH]\n"},
    {"reuse", ReuseCommand, "ozmbench reuse [--count N]\n"},
    {"alloc", AllocCommand,
     "ozmbench alloc mix [--threads N] [--ops M]\nozmbench alloc docs [--count N] [--kb K] [--repeat R]\n"},
    {"dtd", DtdCommand,
     "ozmbench dtd [--size MB] [--dtd-size MB] [--repeat N] [--once doc|doc-ignore|doc-refs|subset|modules]\n"},
    {"dtdwrite", DtdWriteCommand, "ozmbench dtdwrite [--elements N] [--repeat R]\n"},
    {"generate", GenerateCommand, "ozmbench generate [--size MB] [--repeat N] [--names N]\n"},
    {"write", WriteCommand, "ozmbench write [--size MB] [--repeat N] [--dir PATH]\n"},
    {"validate", ValidateCommand,
     "ozmbench validate [--size MB] [--repeat N] [--entry string|bytes|file]\nozmbench validate --emit FILE [--size MB]\n"
     "ozmbench validate --emit-small DIR [--count N]\n"},
};

// The usage of one command, or of all.
void PrintUsage(const char* only) {
    std::fprintf(stderr, "usage:\n");
    for (const Command& c : kCommands)
        if (!only || !std::strcmp(only, c.name))
            std::fprintf(stderr, "%s", c.usage);
    if (!only)
        std::fprintf(stderr, "ozmbench --callgrind-support\n");
}

template <class T>
Option NumberOption(const char* name, T& v, long min) {
    return {name, nullptr, [&v, min](const char* s) {
                char* end;
                errno = 0;
                const long n = std::strtol(s, &end, 10);
                if (*end || end == s || errno || n < min)
                    return false;
                v = T(n);
                return true;
            }};
}

}  // namespace

Option Flag(const char* name, bool& v) { return {name, &v, nullptr}; }
Option Text(const char* name, std::string& v) {
    return {name, nullptr, [&v](const char* s) { return v = s, true; }};
}
Option Number(const char* name, int& v, long min) { return NumberOption(name, v, min); }
Option Number(const char* name, long& v, long min) { return NumberOption(name, v, min); }
Option Number(const char* name, size_t& v, long min) { return NumberOption(name, v, min); }
Option Number(const char* name, double& v) {
    return {name, nullptr, [&v](const char* s) {
                char* end;
                v = std::strtod(s, &end);
                return !*end && end != s && v > 0;
            }};
}

void ParseOptions(int argc, char** argv, int first, const std::vector<Option>& options) {
    for (int i = first; i < argc; ++i) {
        const Option* o = nullptr;
        for (const Option& c : options)
            if (!std::strcmp(argv[i], c.name))
                o = &c;
        if (o && o->flag)
            *o->flag = true;
        else if (!o || i + 1 == argc || !o->set(argv[++i]))
            Usage(argv[0]);
    }
}

void Usage(const char* command) {
    PrintUsage(command);
    std::exit(2);
}

}  // namespace ozmbench

int main(int argc, char** argv) {
    using namespace ozmbench;
    if (argc == 2 && !std::strcmp(argv[1], "--callgrind-support")) {
        std::printf("%s\n", CallgrindRequests() ? "yes" : "no");
        return 0;
    }
    for (const Command& c : kCommands)
        if (argc > 1 && !std::strcmp(argv[1], c.name)) {
            // Only the parse measure reads the count of operator new.
            CountNew(c.run == ParseCommand);
            return c.run(argc - 1, argv + 1);
        }
    PrintUsage(nullptr);
    return 2;
}
