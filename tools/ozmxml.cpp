// ozmxml - the command-line front door of the library: checks documents,
// shows their element trees, writes them back, and prints, generates and
// draws their definitions. Built on the public interface only.

// Directories are listed and files asked about with the 64-bit calls on
// 32-bit systems too: the 32-bit ones fail on large inode numbers.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "xmlapi.h"

#ifndef OZMXML_VERSION
#define OZMXML_VERSION "unknown"
#endif

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

const char* const kToolHelp =
    "usage: ozmxml COMMAND [OPTIONS] FILE...\n"
    "\n"
    "Commands:\n"
    "  check   parse documents and report errors as FILE:LINE:COL: MESSAGE\n"
    "  validate  check documents against their document type definition\n"
    "  tree    print the element tree of a document\n"
    "  write   parse a document and write it back\n"
    "  dtd     print, generate or draw a document type definition\n"
    "\n"
    "'-' as FILE reads standard input. 'ozmxml COMMAND --help' tells more.\n"
    "\n"
    "Every command takes these options for the external subsets and entities\n"
    "that documents name (by default they are read from files, as named):\n"
    "  --no-external   read none: a document that names one fails, and the\n"
    "                  file system is not asked about it; choose this for\n"
    "                  documents from others, which could read this machine's\n"
    "                  files (<!ENTITY x SYSTEM \"/etc/hostname\">)\n"
    "  --confine DIR   read only regular files inside DIR (symbolic links\n"
    "                  resolved)\n"
    "  --catalog FILE  look identifiers up in the XML catalogue FILE first\n"
    "                  (may be given several times); without it, the\n"
    "                  catalogues in XML_CATALOG_FILES (separated by blanks),\n"
    "                  when set. What no catalogue names goes to the policy\n"
    "                  above.\n"
    "\n"
    "Text from documents and file names in messages and in 'tree' is\n"
    "shown with control characters escaped (see ozmxml tree --help).\n"
    "Exit status: 0 success, 1 a document failed or the output could not be\n"
    "written, 2 bad usage.\n";

#define BATCH_HELP                                                                  \
    "  -r             take the files below each directory named, whose names\n"   \
    "                 end in .xml (or as --ext says), in the order of their names\n" \
    "  --ext EXT      with -r, take files ending in .EXT instead\n"                \
    "  -j N           work on N files at once (default: the number of processors);\n" \
    "                 the output keeps the order of the files\n"                   \
    "  --format json  print one JSON object per file on standard output: name,\n" \
    "                 status and errors, each with line and column or path\n"

const char* const kCheckHelp =
    "usage: ozmxml check [--ignore-dtd] [-r] [--ext EXT] [-j N] [--format json]\n"
    "                    FILE...\n"
    "\n"
    "Parses each FILE. A failure is reported on standard error as\n"
    "FILE:LINE:COL: MESSAGE, where FILE may be an external subset the\n"
    "document refers to. A document without a root element (an empty file,\n"
    "say) fails as FILE: no root element. With more than one FILE a summary\n"
    "line follows.\n"
    "\n"
    "  --ignore-dtd   skip the document type declaration\n"
    BATCH_HELP;

const char* const kValidateHelp =
    "usage: ozmxml validate [--dtd FILE] [--max-errors N] [-r] [--ext EXT] [-j N]\n"
    "                       [--format json] FILE...\n"
    "\n"
    "Checks each FILE against its own document type declaration, or against\n"
    "the external subset given by --dtd (read once, its root found as by\n"
    "'ozmxml dtd --external'; a subset without a single root element leaves\n"
    "the root's name unchecked). Each violation is reported on standard error\n"
    "as FILE: PATH: MESSAGE, where PATH leads from the root to the element,\n"
    "with the position among siblings of the same name where there are\n"
    "several (/book/chapter[3]/title); a fault of the definition itself as\n"
    "FILE: MESSAGE. A file that fails to parse is reported as by check. A\n"
    "summary line follows. Exit status 0 when all files are valid, 1 when\n"
    "any is not or fails to parse.\n"
    "\n"
    "  --dtd FILE       check against this external subset\n"
    "  --max-errors N   report at most N violations per file (default 100,\n"
    "                   0: no limit)\n"
    BATCH_HELP;

const char* const kTreeHelp =
    "usage: ozmxml tree FILE\n"
    "\n"
    "Prints the element tree: one element a line, indented by depth, with\n"
    "its attributes and its text (trimmed). Names, values and text are shown\n"
    "with line feed, tab and carriage return as \\n \\t \\r, other ASCII\n"
    "control characters and bytes that are not UTF-8 as \\xHH, the controls\n"
    "U+0080 to U+009F and unpaired surrogates as \\uHHHH, and a backslash as\n"
    "\\\\; other characters as they are. Error messages and file names are\n"
    "shown the same way.\n";

const char* const kWriteHelp =
    "usage: ozmxml write [OPTIONS] FILE\n"
    "\n"
    "Parses FILE and writes it back, as it goes (not held in memory). The\n"
    "text is written as it is, control characters included.\n"
    "\n"
    "  -o OUT            write to OUT instead of standard output\n"
    "  --utf16           write UTF-16 (little-endian, with a byte-order mark)\n"
    "  --no-indent       no line breaks and no indentation\n"
    "  --no-escape       write text as it is, without &lt; &amp; ...\n"
    "  --no-declaration  leave out the XML declaration\n"
    "  --no-doctype      leave out the document type declaration\n"
    "  --externals       write external identifiers instead of the\n"
    "                    declarations read from external subsets\n"
    "  --drop-empty      leave out elements with neither text nor children\n"
    "  --keep-space      keep white space between child elements (it is held\n"
    "                    as the parent's text and written before the children)\n";

const char* const kDtdHelp =
    "usage: ozmxml dtd [--dot] FILE\n"
    "       ozmxml dtd [--dot] --generate FILE...\n"
    "       ozmxml dtd [--dot] --external FILE.dtd\n"
    "\n"
    "Prints the definition of a document. --generate infers one from the\n"
    "documents (content models and length attributes); --external reads a\n"
    "stand-alone external subset and prints the root it found. --dot prints\n"
    "the content models as a Graphviz graph instead (render with dot -Tpng).\n"
    "Control characters other than tab and line breaks in the definition are\n"
    "printed as character references (&#x1B;).\n";

std::string Utf8(const UCChar* text) {
    std::string out;
    if (text)
        OzmGlob::WStringToString(UCString(text), out, csetUTF8);
    return out;
}

UCString Wide(const char* text) {
    UCString out;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(text), std::strlen(text), out);
    return out;
}

bool IsStdin(const std::string& file) { return file.size() == 1 && file[0] == '-'; }

// Appends text from a document or a file name to out, made safe to print: a
// control character would act on the terminal. Valid UTF-8 stays as it is,
// except line feed, tab and carriage return as \n \t \r, the other C0
// controls and DEL as \xHH, the C1 controls (U+0080 to U+009F) and unpaired
// surrogates as \uHHHH, a byte that is not part of valid UTF-8 as \xHH, and
// the backslash as \\, so that every backslash shown starts an escape.
void AppendPrintable(std::string& out, const char* data, size_t n) {
    static const char kHex[] = "0123456789ABCDEF";
    const auto* s = reinterpret_cast<const unsigned char*>(data);
    for (size_t i = 0; i < n;) {
        // A run of printable ASCII goes in one piece.
        size_t plain = i;
        while (plain < n && s[plain] >= 0x20 && s[plain] < 0x7F && s[plain] != '\\')
            ++plain;
        out.append(data + i, plain - i);
        if ((i = plain) == n)
            break;
        const unsigned char b = s[i];
        if (b < 0x80) {
            if (b == '\\')
                out += "\\\\";
            else if (b == '\n')
                out += "\\n";
            else if (b == '\t')
                out += "\\t";
            else if (b == '\r')
                out += "\\r";
            else
                out += {'\\', 'x', kHex[b >> 4], kHex[b & 15]};
            ++i;
            continue;
        }
        // A sequence of length bytes for a code point of at least least.
        const size_t length = b >= 0xC2 && b <= 0xDF ? 2 : b >= 0xE0 && b <= 0xEF ? 3 : b >= 0xF0 && b <= 0xF4 ? 4 : 0;
        const unsigned long least = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
        unsigned long cp = length ? b & (0xFF >> (length + 1)) : 0;
        size_t k = 1;
        for (; length && k < length && i + k < n && (s[i + k] & 0xC0) == 0x80; ++k)
            cp = cp << 6 | (s[i + k] & 0x3F);
        if (!length || k < length || cp < least || cp > 0x10FFFF) {
            out += {'\\', 'x', kHex[b >> 4], kHex[b & 15]};
            ++i;
        } else if (cp <= 0x9F || (cp >= 0xD800 && cp <= 0xDFFF)) {
            out += {'\\', 'u', kHex[cp >> 12], kHex[cp >> 8 & 15], kHex[cp >> 4 & 15], kHex[cp & 15]};
            i += length;
        } else {
            out.append(data + i, length);
            i += length;
        }
    }
}
std::string Printable(const std::string& in) {
    std::string out;
    AppendPrintable(out, in.data(), in.size());
    return out;
}
std::string Printable(const UCChar* text) { return Printable(Utf8(text)); }
std::string Shown(const std::string& file) { return IsStdin(file) ? "<stdin>" : Printable(file); }

// ---- Output ----

// The progress line and everything else printed share the terminal: what
// prints takes g_terminal and clears the progress line first.
std::mutex g_terminal;
bool g_progressShown = false;  // a progress line stands on standard error

void ClearProgressLine() {
    if (g_progressShown) {
        std::fputs("\r\033[K", stderr);
        g_progressShown = false;
    }
}

// A message on standard error, on a line of its own.
__attribute__((format(printf, 1, 2))) void Message(const char* format, ...) {
    std::lock_guard<std::mutex> lock(g_terminal);
    ClearProgressLine();
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
}

// Standard output: the first failed write is kept (its errno) and reported
// by FinishOutput.
int g_outputError = 0;

bool OutputOk() { return g_outputError == 0; }

void NoteOutput(bool ok) {
    if (!ok && !g_outputError)
        g_outputError = errno ? errno : EIO;
}

void Out(const char* data, size_t size) {
    std::lock_guard<std::mutex> lock(g_terminal);
    ClearProgressLine();
    NoteOutput(std::fwrite(data, 1, size, stdout) == size && !std::ferror(stdout));
}
void Out(const std::string& text) { Out(text.data(), text.size()); }

__attribute__((format(printf, 1, 2))) void Outf(const char* format, ...) {
    std::lock_guard<std::mutex> lock(g_terminal);
    ClearProgressLine();
    va_list args;
    va_start(args, format);
    NoteOutput(std::vfprintf(stdout, format, args) >= 0 && !std::ferror(stdout));
    va_end(args);
}

// Flushes and closes standard output; a write that failed now or before
// turns status into a failure with a message. A closed standard output is
// no failure when nothing was to be written to it.
int FinishOutput(int status) {
    const bool failed = std::ferror(stdout), pending = __fpending(stdout) > 0;
    if (std::fclose(stdout) != 0 && (failed || pending || errno != EBADF))
        NoteOutput(false);
    NoteOutput(!failed);
    if (OutputOk())
        return status;
    Message("ozmxml: error writing output: %s\n", std::strerror(g_outputError));
    return status == kExitOk ? kExitFailed : status;
}

// Progress on standard error for work that takes longer than a second: a
// watcher thread wakes once a second and rewrites one line. Nothing is shown
// when standard error is not a terminal. The line goes when the object does,
// and for a moment whenever something else is printed.
class Progress {
public:
    explicit Progress(size_t total) : m_total(total) {
        if (::isatty(2))
            m_thread = std::thread([this] { Run(); });
    }
    ~Progress() {
        if (m_thread.joinable()) {
            {
                std::lock_guard<std::mutex> lock(g_terminal);
                m_done = true;
            }
            m_wake.notify_one();
            m_thread.join();
        }
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // The number of files, once it is known.
    void Total(size_t total) {
        std::lock_guard<std::mutex> lock(g_terminal);
        m_total = total;
    }

    void At(size_t index, const std::string& file) {
        if (!m_thread.joinable())
            return;  // nothing is shown
        std::lock_guard<std::mutex> lock(g_terminal);
        m_index = index;
        m_file = Shown(file);
    }

private:
    void Run() {
        const auto start = std::chrono::steady_clock::now();
        std::unique_lock<std::mutex> lock(g_terminal);
        while (!m_wake.wait_for(lock, std::chrono::seconds(1), [this] { return m_done; })) {
            const long seconds =
                long(std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count());
            std::fprintf(stderr, "\r\033[Kozmxml: %zu of %zu, %s (%lds)", m_index + 1, m_total, m_file.c_str(),
                         seconds);
            std::fflush(stderr);
            g_progressShown = true;
        }
        ClearProgressLine();
    }

    size_t m_total;
    size_t m_index = 0;
    std::string m_file;  // as shown
    bool m_done = false;
    std::condition_variable m_wake;
    std::thread m_thread;
};

// A problem with one file: where it is (the file, or an external subset it
// names), the line and column (line < 0: no place), and what it is. While
// work on many files runs, each file's problems are kept (t_problems) and
// printed in the order in which the files were named; otherwise they go to
// standard error at once.
struct FileProblem {
    std::string where;
    int line, col;
    std::string text;
};
thread_local std::vector<FileProblem>* t_problems = nullptr;

void FileError(const std::string& where, int line, int col, const std::string& text) {
    if (t_problems) {
        t_problems->push_back({where, line, col, text});
    } else if (line < 0) {
        Message("%s: %s\n", Shown(where).c_str(), Printable(text).c_str());
    } else {
        Message("%s:%d:%d: %s\n", Shown(where).c_str(), line, col, Printable(text).c_str());
    }
}

// Says on standard error why file cannot be read, if it cannot. It asks
// without opening: a named pipe opened and closed here would lose what its
// writer sent before the parser opens it.
bool Readable(const std::string& file) {
    if (::access(file.c_str(), R_OK) == 0)
        return true;
    FileError(file, -1, 0, std::string("cannot open: ") + std::strerror(errno));
    return false;
}

// How the documents of this run find their external resources (set by
// ReadArgs from --no-external, --confine and --catalog; Parse hands it on).
XmlResources g_resources;

// Parses file ("-": standard input through the descriptor module). On a
// failure the one line of the error goes to standard error. A document
// without a root element (an empty file, say) parses without an error; with
// requireRoot it fails here, as check wants.
bool Parse(XmlDocument& doc, const std::string& file, bool ignoreDtd, bool requireRoot = false) {
    doc.ExternalResources(g_resources);
    BATCHERR rc;
    if (IsStdin(file)) {
        rc = doc.ParseDLL(u"fd:0", false, false, nullptr, ignoreDtd);
    } else {
        const bool validate = false;
        rc = doc.ParseFile(Wide(file.c_str()).c_str(), validate, ignoreDtd);
        // A file that could not be opened is named with the system's
        // reason, asked only then, so that a good file costs no call more.
        if (rc == errOpenSource && !Readable(file))
            return false;
    }
    if (rc == errNone) {
        if (doc.RootElement() || !requireRoot)
            return true;
        FileError(file, -1, 0, "no root element");
        return false;
    }
    // The place is in the file the error names (an external subset, say),
    // or in the document itself.
    std::string where = Utf8(doc.ErrorFile());
    if (where.empty() || IsStdin(file)) {
        where = file;
    } else if (where != file && where[0] != '/') {
        // A subset named relative to the document is looked for beside it:
        // name it so that it can be found from here.
        const size_t slash = file.rfind('/');
        if (slash != std::string::npos && ::access((file.substr(0, slash + 1) + where).c_str(), F_OK) == 0)
            where = file.substr(0, slash + 1) + where;
    }
    FileError(where, doc.ErrorLine(), doc.ErrorCol(), Utf8(doc.ErrorMessage()));
    return false;
}

// ---- Argument handling ----

struct Args {
    std::vector<std::string> files;
    std::map<std::string, std::string> options;  // option -> value ("" for a switch)
    std::vector<std::string> catalogs;            // --catalog, in their order
};

// Loads the catalogues named; false with a message when one cannot be read.
// Those of XML_CATALOG_FILES are passed over with a warning, as other tools
// do.
bool LoadCatalogs(const char* command, const std::vector<std::string>& files, bool fromEnvironment,
                  std::shared_ptr<XmlCatalog>& catalog) {
    for (const std::string& file : files) {
        if (!catalog)
            catalog = std::make_shared<XmlCatalog>();
        if (catalog->Load(Wide(file.c_str()).c_str()) == errNone)
            continue;
        Message("ozmxml %s: %s: %s\n", command, Printable(file).c_str(), Printable(catalog->ErrorMessage()).c_str());
        if (!fromEnvironment)
            return false;
    }
    return true;
}

// The policy for external resources from the options read.
bool SetResources(const char* command, const Args& args) {
    const bool none = args.options.count("--no-external") != 0;
    const auto confine = args.options.find("--confine");
    if (none && confine != args.options.end()) {
        Message("ozmxml %s: --no-external and --confine exclude each other\n", command);
        return false;
    }
    XmlResources base = none ? XmlResources::None()
                        : confine != args.options.end() ? XmlResources::Confined(Wide(confine->second.c_str()).c_str())
                                                        : XmlResources::Files();
    std::vector<std::string> catalogs = args.catalogs;
    const bool fromEnvironment = catalogs.empty();
    if (fromEnvironment) {
        if (const char* list = std::getenv("XML_CATALOG_FILES")) {
            std::string all = list, item;
            for (char c : all + " ") {
                if (c == ' ' || c == '\t' || c == '\n') {
                    if (!item.empty())
                        catalogs.push_back(item);
                    item.clear();
                } else {
                    item += c;
                }
            }
        }
    }
    std::shared_ptr<XmlCatalog> catalog;
    if (!LoadCatalogs(command, catalogs, fromEnvironment, catalog))
        return false;
    g_resources = catalog ? XmlResources::Catalog(catalog, base) : base;
    return true;
}

// Splits argv into options and files. known lists the switches, valued the
// options that take a value. A bad option gives a message and false.
bool ReadArgs(const char* command, int argc, char** argv, const std::vector<std::string>& known,
              const std::vector<std::string>& valued, Args& args) {
    bool optionsEnd = false;
    for (int i = 0; i < argc; ++i) {
        const std::string arg = argv[i];
        if (optionsEnd || arg == "-" || arg.empty() || arg[0] != '-') {
            args.files.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnd = true;
            continue;
        }
        // The options of external resources, for every command.
        if (arg == "--no-external") {
            args.options[arg] = "";
            continue;
        }
        if ((arg == "--confine" || arg == "--catalog") && i + 1 < argc) {
            if (arg == "--catalog")
                args.catalogs.push_back(argv[++i]);
            else
                args.options[arg] = argv[++i];
            continue;
        }
        bool isKnown = false, isValued = arg == "--confine" || arg == "--catalog";
        for (const std::string& k : known)
            isKnown = isKnown || k == arg;
        for (const std::string& v : valued)
            isValued = isValued || v == arg;
        if (isValued) {
            if (i + 1 >= argc) {
                Message("ozmxml %s: option %s needs a value\n", command, Printable(arg).c_str());
                return false;
            }
            args.options[arg] = argv[++i];
        } else if (isKnown) {
            args.options[arg] = "";
        } else {
            Message("ozmxml %s: unknown option %s (see ozmxml %s --help)\n", command, Printable(arg).c_str(),
                    command);
            return false;
        }
    }
    return SetResources(command, args);
}

bool WantsHelp(int argc, char** argv) {
    for (int i = 0; i < argc; ++i)
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h"))
            return true;
    return false;
}

bool CountFiles(const char* command, const Args& args, size_t least, size_t most) {
    if (args.files.size() >= least && args.files.size() <= most)
        return true;
    Message("ozmxml %s: %s (see ozmxml %s --help)\n", command, args.files.empty() ? "no FILE given" : "too many files",
            command);
    return false;
}

// ---- Many files: -r, -j, --format json ----

// How check and validate take their files and print their results.
struct Batch {
    bool recursive = false;
    std::string ext = ".xml";
    unsigned jobs = 1;
    bool json = false;
};

// Reads -r, --ext, -j and --format from args.
bool ReadBatch(const char* command, const Args& args, Batch& batch) {
    batch.recursive = args.options.count("-r") != 0;
    auto ext = args.options.find("--ext");
    if (ext != args.options.end()) {
        if (ext->second.empty() || ext->second.find('/') != std::string::npos) {
            Message("ozmxml %s: --ext needs a file name ending, such as xhtml\n", command);
            return false;
        }
        batch.ext = ext->second[0] == '.' ? ext->second : "." + ext->second;
    }
    const unsigned processors = std::thread::hardware_concurrency();
    batch.jobs = processors ? processors : 1;
    auto jobs = args.options.find("-j");
    if (jobs != args.options.end()) {
        char* end = nullptr;
        errno = 0;
        const unsigned long n = std::strtoul(jobs->second.c_str(), &end, 10);
        if (jobs->second.empty() || *end || errno || n < 1 || n > 1024 || jobs->second[0] == '-') {
            Message("ozmxml %s: -j needs a number of jobs from 1 to 1024\n", command);
            return false;
        }
        batch.jobs = unsigned(n);
    }
    auto format = args.options.find("--format");
    if (format != args.options.end()) {
        if (format->second != "json" && format->second != "text") {
            Message("ozmxml %s: --format is text or json\n", command);
            return false;
        }
        batch.json = format->second == "json";
    }
    return true;
}

// The files to work on: those named, with each directory replaced by the
// files below it whose names end in batch.ext, in the order of their names.
// A directory without -r, or one that cannot be read, is a file that fails.
struct BatchFile {
    std::string name;
    std::string problem;  // why it fails before it is read
};

// Hands each(path) the files below dir (a path ending in '/') whose names
// end in ext: regular files, and links to them; directories are entered,
// links to directories are not. The type comes with each entry where the
// file system gives it, so that a directory of many files costs no call per
// file. Directories that cannot be read below the first are passed over;
// false with errno when dir itself cannot be.
template <class Each>
bool FindFiles(const std::string& dir, const std::string& ext, bool top, Each&& each) {
    DIR* d = ::opendir(dir.c_str());
    if (!d)
        return !top;
    std::vector<std::string> below;
    for (;;) {
        errno = 0;  // readdir's end and its failure differ only by errno
        const dirent* entry = ::readdir(d);
        if (!entry)
            break;
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
            continue;
        unsigned char type = entry->d_type;
        std::string path = dir + name;
        if (type == DT_UNKNOWN || type == DT_LNK) {
            struct stat st;
            if (::lstat(path.c_str(), &st) != 0)
                continue;
            if (S_ISLNK(st.st_mode))
                type = ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) ? DT_REG : DT_LNK;
            else
                type = S_ISDIR(st.st_mode) ? DT_DIR : S_ISREG(st.st_mode) ? DT_REG : DT_UNKNOWN;
        }
        if (type == DT_DIR)
            below.push_back(path + '/');
        else if (type == DT_REG && path.size() > ext.size() &&
                 path.compare(path.size() - ext.size(), std::string::npos, ext) == 0)
            each(std::move(path));
    }
    // A directory that stops being readable half way counts as unreadable.
    const int error = errno;
    ::closedir(d);
    if (error) {
        errno = error;
        return !top;
    }
    for (const std::string& sub : below)
        FindFiles(sub, ext, false, each);
    return true;
}

template <class Found>
std::vector<size_t> ExpandFiles(const std::vector<std::string>& named, const Batch& batch, Found&& found) {
    std::vector<size_t> order;
    for (const std::string& file : named) {
        std::error_code ec;
        if (IsStdin(file) || !std::filesystem::is_directory(file, ec)) {
            order.push_back(order.size());
            found(BatchFile{file, ""});
            continue;
        }
        if (!batch.recursive) {
            order.push_back(order.size());
            found(BatchFile{file, "is a directory (use -r)"});
            continue;
        }
        const std::string dir = file.back() == '/' ? file : file + '/';
        // By the eight bytes after the directory's own name first, which
        // tell most names apart, then whole.
        struct Keyed {
            uint64_t key;
            size_t index;
            std::string name;
        };
        std::vector<Keyed> keyed;
        const size_t first = order.size();
        const bool listed = FindFiles(dir, batch.ext, true, [&](std::string&& path) {
            uint64_t key = 0;
            for (size_t k = 0; k < 8; ++k)
                key = key << 8 | (dir.size() + k < path.size() ? uint8_t(path[dir.size() + k]) : 0);
            keyed.push_back({key, first + keyed.size(), path});
            found(BatchFile{std::move(path), ""});
        });
        if (!listed) {
            const int error = errno;
            order.push_back(order.size());
            found(BatchFile{file, std::string("cannot read the directory: ") + std::strerror(error)});
            continue;
        }
        std::sort(keyed.begin(), keyed.end(), [](const Keyed& x, const Keyed& y) {
            return x.key != y.key ? x.key < y.key : x.name < y.name;
        });
        for (const Keyed& k : keyed)
            order.push_back(k.index);
    }
    return order;
}

// What became of one file.
struct FileResult {
    int status = 0;  // 0 good, 1 found invalid, 2 failed to parse
    std::vector<FileProblem> problems;
    std::vector<XmlViolation> violations;
    bool stopped = false;  // the violations reached the limit
};

// Text as a JSON string: the escapes JSON requires, control characters
// (C1 included) as \u00XX, and bytes that are not UTF-8 as U+FFFD.
std::string Json(const std::string& text) {
    static const char kHex[] = "0123456789abcdef";
    std::string out = "\"";
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const size_t n = text.size();
    for (size_t i = 0; i < n;) {
        const unsigned char b = s[i];
        if (b < 0x80) {
            if (b == '"' || b == '\\')
                out += {'\\', char(b)};
            else if (b < 0x20 || b == 0x7F)
                out += {'\\', 'u', '0', '0', kHex[b >> 4], kHex[b & 15]};
            else
                out += char(b);
            ++i;
            continue;
        }
        const size_t length = b >= 0xC2 && b <= 0xDF ? 2 : b >= 0xE0 && b <= 0xEF ? 3 : b >= 0xF0 && b <= 0xF4 ? 4 : 0;
        const unsigned long least = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
        unsigned long cp = length ? b & (0xFF >> (length + 1)) : 0;
        size_t k = 1;
        for (; length && k < length && i + k < n && (s[i + k] & 0xC0) == 0x80; ++k)
            cp = cp << 6 | (s[i + k] & 0x3F);
        if (!length || k < length || cp < least || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            out += "\\ufffd";
            ++i;
        } else if (cp <= 0x9F) {
            out += {'\\', 'u', '0', '0', kHex[cp >> 4], kHex[cp & 15]};
            i += length;
        } else {
            out.append(text, i, length);
            i += length;
        }
    }
    return out + "\"";
}

const char* const kStatusText[] = {"valid", "invalid", "failed"};

// Prints one file's result: problems on standard error, or one JSON object
// on standard output.
void PrintResult(const std::string& file, const FileResult& result, bool json, const char* goodStatus) {
    if (json) {
        std::string line = "{\"name\":" + Json(IsStdin(file) ? "<stdin>" : file) + ",\"status\":\"" +
                           (result.status ? kStatusText[result.status] : goodStatus) + "\",\"errors\":[";
        bool first = true;
        for (const FileProblem& p : result.problems) {
            line += first ? "{" : ",{";
            first = false;
            if (p.where != file)
                line += "\"file\":" + Json(p.where) + ",";
            if (p.line >= 0)
                line += "\"line\":" + std::to_string(p.line) + ",\"column\":" + std::to_string(p.col) + ",";
            line += "\"message\":" + Json(p.text) + "}";
        }
        for (const XmlViolation& v : result.violations) {
            line += first ? "{" : ",{";
            first = false;
            line += "\"kind\":" + Json(Utf8(XmlViolation::KindName(v.Kind()))) + ",\"path\":" + Json(Utf8(v.Path())) +
                    ",\"message\":" + Json(Utf8(v.Message())) + "}";
        }
        line += "]";
        if (result.stopped)
            line += ",\"stopped\":true";
        Out(line + "}\n");
        return;
    }
    for (const FileProblem& p : result.problems)
        FileError(p.where, p.line, p.col, p.text);
    for (const XmlViolation& v : result.violations) {
        if (*v.Path())
            Message("%s: %s: %s\n", Shown(file).c_str(), Printable(v.Path()).c_str(), Printable(v.Message()).c_str());
        else
            Message("%s: %s\n", Shown(file).c_str(), Printable(v.Message()).c_str());
    }
    if (result.stopped)
        Message("%s: stopped after %zu violations (--max-errors)\n", Shown(file).c_str(), result.violations.size());
}

// Runs work(doc, file, result) for every file of named (see ExpandFiles) on
// batch.jobs threads, each with a document of its own that it reuses, and
// hands each result to emit(place, file, result) on this thread in the
// order to show them, whatever the order in which they finish; listed(n)
// is told the number of files once they are all found. The workers start on
// the first files while the rest are still being found. Returns the number
// of files.
template <class Work, class Emit, class Listed>
size_t RunBatch(const std::vector<std::string>& named, const Batch& batch, Work&& work, Emit&& emit,
                Listed&& listed) {
    auto process = [&](XmlDocument& doc, const BatchFile& file, FileResult& result) {
        t_problems = &result.problems;
        try {
            if (!file.problem.empty()) {
                FileError(file.name, -1, 0, file.problem);
                result.status = 2;
            } else {
                work(doc, file.name, result);
            }
        } catch (const std::bad_alloc&) {
            result.problems.push_back({file.name, -1, 0, "out of memory"});
            result.status = 2;
        }
        t_problems = nullptr;
    };
    std::error_code ec;
    const bool single = named.size() == 1 && (IsStdin(named[0]) || !batch.recursive ||
                                              !std::filesystem::is_directory(named[0], ec));
    if (batch.jobs <= 1 || single) {
        std::vector<BatchFile> files;
        const std::vector<size_t> order =
            ExpandFiles(named, batch, [&](BatchFile&& f) { files.push_back(std::move(f)); });
        listed(files.size());
        XmlDocument doc;
        for (size_t k = 0; k < order.size(); ++k) {
            FileResult result;
            process(doc, files[order[k]], result);
            emit(k, files[order[k]].name, result);
        }
        return files.size();
    }
    // The files as found, each with its result, in blocks that never move:
    // block b holds 1024 << b of them. The finder fills a place and then
    // publishes it; a worker takes the next number and waits only when the
    // finder has not got that far.
    struct Slot {
        BatchFile file;
        FileResult result;
        std::atomic<bool> done{false};
    };
    constexpr int kBlocks = 48;
    std::unique_ptr<Slot[]> blocks[kBlocks];
    // The block of place i, and its place in the block.
    auto blockOf = [](size_t i, size_t& within) {
        const size_t j = i + 1024;
        const int b = 63 - __builtin_clzll(j) - 10;
        within = j - (size_t(1024) << b);
        return b;
    };
    auto at = [&](size_t i) -> Slot& {
        size_t within;
        const int b = blockOf(i, within);
        return blocks[b][within];
    };
    std::atomic<size_t> next{0}, published{0};
    std::atomic<bool> all{false};
    std::mutex lock;
    std::condition_variable more, finished;
    std::atomic<size_t> awaited{SIZE_MAX};
    auto take = [&](XmlDocument& doc) {
        const size_t i = next++;
        if (i >= published.load()) {
            std::unique_lock<std::mutex> guard(lock);
            more.wait(guard, [&] { return i < published.load() || all.load(); });
            if (i >= published.load())
                return false;
        }
        Slot& slot = at(i);
        process(doc, slot.file, slot.result);
        slot.done = true;
        if (awaited == i) {
            std::lock_guard<std::mutex> guard(lock);
            finished.notify_one();
        }
        return true;
    };
    std::vector<std::thread> threads;
    // Publishing: under the lock, so that a worker about to wait sees it.
    auto publish = [&](size_t count, bool last) {
        {
            std::lock_guard<std::mutex> guard(lock);
            published = count;
            all = last;
        }
        more.notify_all();
    };
    size_t found = 0;
    std::vector<size_t> order;
    try {
        for (size_t t = 1; t < batch.jobs; ++t)
            threads.emplace_back([&] {
                XmlDocument doc;
                while (take(doc))
                    ;
            });
        order = ExpandFiles(named, batch, [&](BatchFile&& f) {
            size_t within;
            const int b = blockOf(found, within);
            if (!blocks[b])
                blocks[b].reset(new Slot[size_t(1024) << b]);
            at(found).file = std::move(f);
            ++found;
            if (found % 64 == 0)
                publish(found, false);
        });
    } catch (...) {
        // The workers finish the files they have and stop.
        publish(found, true);
        for (std::thread& t : threads)
            t.join();
        throw;
    }
    publish(found, true);
    listed(found);
    // This thread is one of the workers now: between files of its own it
    // shows the results that are ready in order, and it waits only at the
    // end, so that small files cost no switch between threads each.
    XmlDocument doc;
    size_t shown = 0;
    auto show = [&] {
        Slot& slot = at(order[shown]);
        emit(shown, slot.file.name, slot.result);
        slot.result = FileResult();
        ++shown;
    };
    while (take(doc))
        while (shown < found && at(order[shown]).done)
            show();
    while (shown < found) {
        if (!at(order[shown]).done) {
            std::unique_lock<std::mutex> guard(lock);
            awaited = order[shown];
            finished.wait(guard, [&] { return at(order[shown]).done.load(); });
        }
        show();
    }
    for (std::thread& t : threads)
        t.join();
    return found;
}

// ---- check ----

int Check(int argc, char** argv) {
    Args args;
    Batch batch;
    if (!ReadArgs("check", argc, argv, {"--ignore-dtd", "-r"}, {"-j", "--ext", "--format"}, args) ||
        !CountFiles("check", args, 1, size_t(-1)) || !ReadBatch("check", args, batch))
        return kExitUsage;
    const bool ignoreDtd = args.options.count("--ignore-dtd") != 0;
    size_t failed = 0, count = 0;
    {
        Progress progress(0);
        count = RunBatch(
            args.files, batch,
            [&](XmlDocument& doc, const std::string& file, FileResult& result) {
                if (!Parse(doc, file, ignoreDtd, true))
                    result.status = 2;
            },
            [&](size_t i, const std::string& file, const FileResult& result) {
                progress.At(i, file);
                failed += result.status != 0;
                PrintResult(file, result, batch.json, "parsed");
            },
            [&](size_t n) { progress.Total(n); });
    }
    if (count > 1 && !batch.json)
        Outf("%zu files: %zu parsed, %zu failed\n", count, count - failed, failed);
    return failed ? kExitFailed : kExitOk;
}

// ---- validate ----

int Validate(int argc, char** argv) {
    Args args;
    Batch batch;
    if (!ReadArgs("validate", argc, argv, {"-r"}, {"-j", "--ext", "--format", "--dtd", "--max-errors"}, args) ||
        !CountFiles("validate", args, 1, size_t(-1)) || !ReadBatch("validate", args, batch))
        return kExitUsage;
    size_t most = 100;
    auto limit = args.options.find("--max-errors");
    if (limit != args.options.end()) {
        char* end = nullptr;
        errno = 0;
        const unsigned long long n = std::strtoull(limit->second.c_str(), &end, 10);
        if (limit->second.empty() || *end || errno || limit->second[0] == '-') {
            Message("ozmxml validate: --max-errors needs a number (0: no limit)\n");
            return kExitUsage;
        }
        most = size_t(n);
    }
    // The definition given is read once, and all workers check against it.
    XmlDocument definition;
    const XmlDtd* dtd = nullptr;
    auto given = args.options.find("--dtd");
    if (given != args.options.end()) {
        const std::string& file = given->second;
        if (IsStdin(file)) {
            Message("ozmxml validate: --dtd reads a file, not standard input\n");
            return kExitUsage;
        }
        if (!Readable(file))
            return kExitFailed;
        // What the subset names by a relative path is found beside it (the
        // library would look beside the last document parsed).
        const std::string::size_type slash = file.rfind('/');
        definition.ExternalResources(g_resources);
        if (slash != std::string::npos && g_resources.Kind() == resFiles) {
            const UCString dir = Wide(file.substr(0, slash + 1).c_str());
            definition.ExternalResources(XmlResources::Resolver(
                [dir](const UCChar*, const UCChar* systemId, const UCChar*, UCString& answer) {
                    answer = systemId[0] == u'/' ? UCString(systemId) : dir + systemId;
                    return int(resolvePath);
                }));
        }
        // A subset without a single root element (XHTML's, say) is read whole
        // before that is found out: it is taken, and the root's name is then
        // not checked.
        if (definition.ParseExternalDTD(Wide(file.c_str()).c_str()) != errNone &&
            UCString(definition.ErrorMessage()) != u"Could not find single root element in external DTD subset") {
            const std::string where = Utf8(definition.ErrorFile());
            FileError(where.empty() ? file : where, definition.ErrorLine(), definition.ErrorCol(),
                      Utf8(definition.ErrorMessage()));
            return kExitFailed;
        }
        dtd = &definition.GetDTD();
    }
    size_t counts[3] = {0, 0, 0}, count = 0;
    {
        Progress progress(0);
        count = RunBatch(
            args.files, batch,
            [&](XmlDocument& doc, const std::string& file, FileResult& result) {
                if (!Parse(doc, file, false, true)) {
                    result.status = 2;
                    return;
                }
                const bool valid =
                    dtd ? doc.Validate(*dtd, result.violations, most) : doc.Validate(result.violations, most);
                result.status = valid ? 0 : 1;
                result.stopped = most && result.violations.size() >= most;
            },
            [&](size_t i, const std::string& file, const FileResult& result) {
                progress.At(i, file);
                ++counts[result.status];
                PrintResult(file, result, batch.json, "valid");
            },
            [&](size_t n) { progress.Total(n); });
    }
    if (!batch.json)
        Outf("%zu file%s: %zu valid, %zu invalid, %zu failed\n", count, count == 1 ? "" : "s",
             counts[0], counts[1], counts[2]);
    return counts[1] || counts[2] ? kExitFailed : kExitOk;
}

// ---- tree ----

void PrintTree(const XmlElement* root) {
    // Iterative walk: a tree built by a program may be deeper than the stack.
    // Once a write has failed, nothing more is visited.
    std::string line, utf8;
    auto put = [&](const UCChar* text) {
        utf8 = Utf8(text);
        AppendPrintable(line, utf8.data(), utf8.size());
    };
    XmlWalkTree(root, [&](const XmlElement* e, int depth) {
        if (!OutputOk())
            return false;
        line.assign(size_t(depth) * 2, ' ');
        put(e->Name());
        for (int i = 0; i < e->AttributeCount(); ++i) {
            line += ' ';
            put(e->GetAttributeName(i));
            line += "=\"";
            put(e->GetAttributeValue(i));
            line += '"';
        }
        // The text trimmed of white space at both ends.
        utf8 = Utf8(e->Data());
        const size_t begin = utf8.find_first_not_of(" \t\r\n");
        if (begin != std::string::npos) {
            line += " : \"";
            AppendPrintable(line, utf8.data() + begin, utf8.find_last_not_of(" \t\r\n") + 1 - begin);
            line += '"';
        }
        line += '\n';
        Out(line);
        return true;
    });
}

int Tree(int argc, char** argv) {
    Args args;
    if (!ReadArgs("tree", argc, argv, {}, {}, args) || !CountFiles("tree", args, 1, 1))
        return kExitUsage;
    XmlDocument doc;
    {
        Progress progress(1);
        progress.At(0, args.files[0]);
        if (!Parse(doc, args.files[0], false))
            return kExitFailed;
    }
    PrintTree(doc.RootElement());
    return kExitOk;
}

// ---- write ----

// The parser keeps the white space between child elements as the parent's
// text, which the writer would put in front of all the children; the
// writer's own indentation takes its place, so it goes.
void DropLayout(XmlElement* root) {
    XmlWalkTree(root, [](XmlElement* e, int) {
        if (e->Child()) {
            const UCChar* data = e->Data();
            while (*data && OzmGlob::IsUCSpace(*data))
                ++data;
            if (!*data && e->DataLength() > 0)
                e->Data(u"");
        }
        return true;
    });
}

// Writes the document to the descriptor fd as it goes, through the
// stream's buffered file target: UTF-16LE after a byte-order mark, or UTF-8.
// False, with errno set, when a write failed.
bool WriteDocument(const XmlDocument& doc, int fd, bool utf16, bool withExternals, bool lineBreaks, bool escape,
                   int parts, bool writeEmpty) {
    constexpr int kUtf8 = 1, kUtf16LE = 0x6004;
    XmlOutputStream out;
    if (out.AttachUCFile(fd, utf16 ? kUtf16LE : kUtf8) != 0)
        return false;
    if (utf16)
        out << UCChar(0xFEFF);
    doc.Write(out, withExternals, lineBreaks, escape, parts, writeEmpty);
    return out.CloseUCFile() == 0;
}

int Write(int argc, char** argv) {
    Args args;
    if (!ReadArgs("write", argc, argv,
                  {"--utf16", "--no-indent", "--no-escape", "--no-declaration", "--no-doctype", "--externals",
                   "--drop-empty", "--keep-space"},
                  {"-o"}, args) ||
        !CountFiles("write", args, 1, 1))
        return kExitUsage;
    auto has = [&](const char* option) { return args.options.count(option) != 0; };
    XmlDocument doc;
    {
        Progress progress(1);
        progress.At(0, args.files[0]);
        if (!Parse(doc, args.files[0], false))
            return kExitFailed;
    }
    if (!has("--keep-space"))
        DropLayout(doc.RootElement());
    const bool utf16 = has("--utf16");
    int parts = 7;
    if (has("--no-declaration"))
        parts &= ~1;
    if (has("--no-doctype") || !doc.GetDTD().HaveContents())
        parts &= ~2;
    if (utf16)
        doc.Encoding(csetUTF16);
    const bool withExternals = has("--externals"), lineBreaks = !has("--no-indent"), escape = !has("--no-escape"),
               writeEmpty = !has("--drop-empty");

    const auto target = args.options.find("-o");
    if (target == args.options.end()) {
        // Straight to the descriptor, past stdio, which holds nothing yet.
        if (!WriteDocument(doc, 1, utf16, withExternals, lineBreaks, escape, parts, writeEmpty)) {
            NoteOutput(false);
            return kExitFailed;
        }
        return kExitOk;
    }
    const int fd = ::open(target->second.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const bool written = fd >= 0 && WriteDocument(doc, fd, utf16, withExternals, lineBreaks, escape, parts, writeEmpty);
    int error = written ? 0 : errno;
    if (fd >= 0 && ::close(fd) != 0 && !error)
        error = errno;
    if (error) {
        Message("%s: cannot write: %s\n", Printable(target->second).c_str(), std::strerror(error));
        return kExitFailed;
    }
    return kExitOk;
}

// ---- dtd ----

std::string DotQuoted(const UCChar* text) {
    std::string out = "\"";
    for (char c : Printable(text)) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "\"";
}

const char* ModText(int mod) {
    switch (mod) {
    case countPlus:
        return "+";
    case countStar:
        return "*";
    case countOptional:
        return "?";
    default:
        return "";
    }
}

// The content models as a directed graph: a box per element (with EMPTY,
// ANY or #PCDATA where that is its content), an ellipse per group labelled
// with its kind and modifier, and an edge from each element or group to
// what it holds, labelled with the modifier of a name.
void PrintDot(const XmlDtd& dtd) {
    Out("digraph dtd {\n  rankdir=LR;\n  ordering=out;\n  node [fontname=\"Helvetica\", fontsize=11];\n"
        "  edge [fontname=\"Helvetica\", fontsize=10];\n");
    std::map<UCString, std::string> ids;
    auto elementId = [&](const UCChar* name) -> std::string {
        auto it = ids.find(name);
        if (it != ids.end())
            return it->second;
        std::string id = "e" + std::to_string(ids.size());
        ids.emplace(name, id);
        return id;
    };
    for (int i = 0; i < dtd.ElementCount(); ++i) {
        const XmlElementDef* def = dtd.ElementAt(i);
        std::string label = DotQuoted(def->Name());
        label.pop_back();
        if (def->Type() == elemEmpty)
            label += "\\nEMPTY";
        else if (def->Type() == elemAny)
            label += "\\nANY";
        else if (def->Type() == elemMixed)
            label += "\\n#PCDATA";
        const bool isRoot = dtd.DocType() == def->Name();
        Outf("  %s [shape=box, label=%s\"%s];\n", elementId(def->Name()).c_str(), label.c_str(),
             isRoot ? ", style=bold" : "");
    }
    int groups = 0;
    struct Pending {
        const XmlContentPart* part;
        std::string from;
    };
    std::vector<Pending> stack;
    for (int i = 0; i < dtd.ElementCount(); ++i) {
        const XmlElementDef* def = dtd.ElementAt(i);
        if (def->Type() != elemChildren && def->Type() != elemMixed)
            continue;
        const std::string owner = elementId(def->Name());
        stack.push_back({&def->Contents(), owner});
        while (!stack.empty()) {
            Pending p = stack.back();
            stack.pop_back();
            const XmlContentPart& part = *p.part;
            if (part.Type() == cpName) {
                const std::string to = elementId(part.Name());
                if (!dtd.FindElement(part.Name()))
                    Outf("  %s [shape=box, style=dashed, label=%s];\n", to.c_str(), DotQuoted(part.Name()).c_str());
                const char* mod = ModText(part.CountMod());
                Outf("  %s -> %s%s%s%s;\n", p.from.c_str(), to.c_str(), *mod ? " [label=\"" : "", mod,
                     *mod ? "\"]" : "");
            } else if (part.Type() == cpSequence || part.Type() == cpChoice) {
                const std::string id = "g" + std::to_string(groups++);
                const char* kind = def->Type() == elemMixed ? "mixed" : part.Type() == cpSequence ? "seq" : "choice";
                Outf("  %s [shape=ellipse, label=\"%s%s%s\"];\n  %s -> %s [style=dotted];\n", id.c_str(), kind,
                     *ModText(part.CountMod()) ? " " : "", ModText(part.CountMod()), p.from.c_str(), id.c_str());
                for (int k = part.Count() - 1; k >= 0; --k)
                    stack.push_back({&part[k], id});
            }
        }
    }
    Out("}\n");
}

// The definition as written, with control characters other than tab and
// line breaks as character references: they mean what they meant and cannot
// act on a terminal.
void PrintDtd(const XmlDtd& dtd) {
    UCString text, shown;
    XmlOutputStream out;
    out.SetString(&text);
    const bool withExternals = false, lineBreaks = true, escape = true;
    dtd.Write(out, withExternals, lineBreaks, escape);
    out.Close();
    for (UCChar c : text) {
        if ((c < 0x20 && c != u'\t' && c != u'\n' && c != u'\r') || (c >= 0x7F && c <= 0x9F)) {
            char ref[16];
            std::snprintf(ref, sizeof ref, "&#x%X;", unsigned(c));
            shown.append(ref, ref + std::strlen(ref));
        } else {
            shown += c;
        }
    }
    if (!shown.empty() && shown.back() != u'\n')
        shown += u'\n';
    Out(Utf8(shown.c_str()));
}

int Dtd(int argc, char** argv) {
    Args args;
    if (!ReadArgs("dtd", argc, argv, {"--dot", "--generate", "--external"}, {}, args))
        return kExitUsage;
    auto has = [&](const char* option) { return args.options.count(option) != 0; };
    if (has("--generate") && has("--external")) {
        Message("ozmxml dtd: --generate and --external exclude each other\n");
        return kExitUsage;
    }
    if (!CountFiles("dtd", args, 1, has("--generate") ? size_t(-1) : 1))
        return kExitUsage;
    XmlDocument result;
    if (has("--external")) {
        const std::string& file = args.files[0];
        if (IsStdin(file)) {
            Message("ozmxml dtd: --external reads a file, not standard input\n");
            return kExitUsage;
        }
        if (!Readable(file))
            return kExitFailed;
        result.ExternalResources(g_resources);
        if (result.ParseExternalDTD(Wide(file.c_str()).c_str()) != errNone) {
            const std::string where = Utf8(result.ErrorFile());
            Message("%s:%d:%d: %s\n", Printable(where.empty() ? file : where).c_str(), result.ErrorLine(),
                    result.ErrorCol(), Printable(result.ErrorMessage()).c_str());
            return kExitFailed;
        }
        if (!has("--dot"))
            Outf("root: %s\n", Printable(result.GetDTD().DocType().c_str()).c_str());
    } else if (has("--generate")) {
        std::vector<std::unique_ptr<XmlDocument>> docs;
        std::vector<const XmlDocument*> trees;
        Progress progress(args.files.size());
        for (size_t i = 0; i < args.files.size(); ++i) {
            progress.At(i, args.files[i]);
            docs.push_back(std::make_unique<XmlDocument>());
            if (!Parse(*docs.back(), args.files[i], false))
                return kExitFailed;
            trees.push_back(docs.back().get());
        }
        if (!result.GenerateDTD(trees)) {
            Message("ozmxml: out of memory while generating the definition\n");
            return kExitFailed;
        }
    } else {
        if (!Parse(result, args.files[0], false))
            return kExitFailed;
        if (!result.GetDTD().HaveContents() && result.GetDTD().DocType().empty()) {
            Message("%s: no document type declaration (ozmxml dtd --generate infers one)\n",
                    Shown(args.files[0]).c_str());
            return kExitFailed;
        }
    }
    if (has("--dot"))
        PrintDot(result.GetDTD());
    else
        PrintDtd(result.GetDTD());
    return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        Message("%s", kToolHelp);
        return kExitUsage;
    }
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        Out(kToolHelp);
        return FinishOutput(kExitOk);
    }
    if (command == "--version") {
        Outf("ozmxml %s\n", OZMXML_VERSION);
        return FinishOutput(kExitOk);
    }
    struct Command {
        const char* name;
        const char* help;
        int (*run)(int, char**);
    };
    static const Command commands[] = {
        {"check", kCheckHelp, Check}, {"tree", kTreeHelp, Tree},       {"write", kWriteHelp, Write},
        {"dtd", kDtdHelp, Dtd},       {"validate", kValidateHelp, Validate}};
    for (const Command& c : commands) {
        if (command != c.name)
            continue;
        if (WantsHelp(argc - 2, argv + 2)) {
            Out(c.help);
            return FinishOutput(kExitOk);
        }
        int status;
        try {
            status = c.run(argc - 2, argv + 2);
        } catch (const std::bad_alloc&) {
            // The library reports its own shortage; this is the tool's.
            Message("ozmxml: out of memory\n");
            status = kExitFailed;
        }
        return FinishOutput(status);
    }
    Message("ozmxml: unknown command %s (see ozmxml --help)\n", Printable(command).c_str());
    return kExitUsage;
}
