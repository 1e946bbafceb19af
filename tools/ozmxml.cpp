// ozmxml - the command-line front door of the library: checks documents,
// shows their element trees, writes them back, and prints, generates and
// draws their definitions. Built on the public interface only.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
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
    "  tree    print the element tree of a document\n"
    "  write   parse a document and write it back\n"
    "  dtd     print, generate or draw a document type definition\n"
    "\n"
    "'-' as FILE reads standard input. 'ozmxml COMMAND --help' tells more.\n"
    "Exit status: 0 success, 1 a document failed, 2 bad usage.\n";

const char* const kCheckHelp =
    "usage: ozmxml check [--ignore-dtd] FILE...\n"
    "\n"
    "Parses each FILE. A failure is reported on standard error as\n"
    "FILE:LINE:COL: MESSAGE, where FILE may be an external subset the\n"
    "document refers to. With more than one FILE a summary line follows.\n"
    "\n"
    "  --ignore-dtd   skip the document type declaration\n";

const char* const kTreeHelp =
    "usage: ozmxml tree FILE\n"
    "\n"
    "Prints the element tree: one element a line, indented by depth, with\n"
    "its attributes and its text (trimmed, line breaks shown as \\n).\n";

const char* const kWriteHelp =
    "usage: ozmxml write [OPTIONS] FILE\n"
    "\n"
    "Parses FILE and writes it back.\n"
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
    "the content models as a Graphviz graph instead (render with dot -Tpng).\n";

std::string Utf8(const UCChar* text) {
    std::string out;
    OzmGlob::WStringToString(UCString(text), out, csetUTF8);
    return out;
}

UCString Wide(const char* text) {
    UCString out;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(text), std::strlen(text), out);
    return out;
}

bool IsStdin(const std::string& file) { return file == "-"; }
std::string Shown(const std::string& file) { return IsStdin(file) ? "<stdin>" : file; }

// Progress on standard error for work that takes longer than a second: a
// watcher thread wakes once a second and rewrites one line. Nothing is shown
// when standard error is not a terminal.
class Progress {
public:
    explicit Progress(size_t total) : m_total(total) {
        if (::isatty(2))
            m_thread = std::thread([this] { Run(); });
    }
    ~Progress() {
        if (m_thread.joinable()) {
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_done = true;
            }
            m_wake.notify_one();
            m_thread.join();
        }
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void At(size_t index, const std::string& file) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_index = index;
        m_file = file;
    }

private:
    void Run() {
        const auto start = std::chrono::steady_clock::now();
        std::unique_lock<std::mutex> lock(m_mutex);
        bool shown = false;
        while (!m_wake.wait_for(lock, std::chrono::seconds(1), [this] { return m_done; })) {
            const long seconds =
                long(std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count());
            std::fprintf(stderr, "\r\033[Kozmxml: %zu of %zu, %s (%lds)", m_index + 1, m_total,
                         Shown(m_file).c_str(), seconds);
            std::fflush(stderr);
            shown = true;
        }
        if (shown)
            std::fprintf(stderr, "\r\033[K");
    }

    size_t m_total;
    size_t m_index = 0;
    std::string m_file;
    bool m_done = false;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::thread m_thread;
};

// Says on standard error why file cannot be read, if it cannot. It asks
// without opening: a named pipe opened and closed here would lose what its
// writer sent before the parser opens it.
bool Readable(const std::string& file) {
    if (::access(file.c_str(), R_OK) == 0)
        return true;
    std::fprintf(stderr, "%s: cannot open: %s\n", file.c_str(), std::strerror(errno));
    return false;
}

// Parses file ("-": standard input through the descriptor module). On a
// failure the one line of the error goes to standard error.
bool Parse(XmlDocument& doc, const std::string& file, bool ignoreDtd) {
    BATCHERR rc;
    if (IsStdin(file)) {
        rc = doc.ParseDLL(u"fd:0", false, false, nullptr, ignoreDtd);
    } else {
        if (!Readable(file))
            return false;
        const bool validate = false;
        rc = doc.ParseFile(Wide(file.c_str()).c_str(), validate, ignoreDtd);
    }
    if (rc == errNone)
        return true;
    // The place is in the file the error names (an external subset, say),
    // or in the document itself.
    std::string where = Utf8(doc.ErrorFile());
    if (where.empty() || IsStdin(file)) {
        where = Shown(file);
    } else if (where != file && where[0] != '/') {
        // A subset named relative to the document is looked for beside it:
        // name it so that it can be found from here.
        const size_t slash = file.rfind('/');
        if (slash != std::string::npos && ::access((file.substr(0, slash + 1) + where).c_str(), F_OK) == 0)
            where = file.substr(0, slash + 1) + where;
    }
    std::fprintf(stderr, "%s:%d:%d: %s\n", where.c_str(), doc.ErrorLine(), doc.ErrorCol(),
                 Utf8(doc.ErrorMessage()).c_str());
    return false;
}

// ---- Argument handling ----

struct Args {
    std::vector<std::string> files;
    std::map<std::string, std::string> options;  // option -> value ("" for a switch)
};

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
        bool isKnown = false, isValued = false;
        for (const std::string& k : known)
            isKnown = isKnown || k == arg;
        for (const std::string& v : valued)
            isValued = isValued || v == arg;
        if (isValued) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "ozmxml %s: option %s needs a value\n", command, arg.c_str());
                return false;
            }
            args.options[arg] = argv[++i];
        } else if (isKnown) {
            args.options[arg] = "";
        } else {
            std::fprintf(stderr, "ozmxml %s: unknown option %s (see ozmxml %s --help)\n", command, arg.c_str(),
                         command);
            return false;
        }
    }
    return true;
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
    std::fprintf(stderr, "ozmxml %s: %s (see ozmxml %s --help)\n", command,
                 args.files.empty() ? "no FILE given" : "too many files", command);
    return false;
}

// ---- check ----

int Check(int argc, char** argv) {
    Args args;
    if (!ReadArgs("check", argc, argv, {"--ignore-dtd"}, {}, args) || !CountFiles("check", args, 1, size_t(-1)))
        return kExitUsage;
    const bool ignoreDtd = args.options.count("--ignore-dtd") != 0;
    size_t failed = 0;
    {
        Progress progress(args.files.size());
        for (size_t i = 0; i < args.files.size(); ++i) {
            progress.At(i, args.files[i]);
            XmlDocument doc;
            if (!Parse(doc, args.files[i], ignoreDtd))
                ++failed;
        }
    }
    if (args.files.size() > 1)
        std::printf("%zu files: %zu parsed, %zu failed\n", args.files.size(), args.files.size() - failed, failed);
    return failed ? kExitFailed : kExitOk;
}

// ---- tree ----

// Text with white space trimmed at both ends and control characters shown.
std::string Trimmed(const UCChar* text) {
    std::string all = Utf8(text), out;
    size_t begin = all.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos)
        return out;
    size_t end = all.find_last_not_of(" \t\r\n") + 1;
    for (size_t i = begin; i < end; ++i) {
        if (all[i] == '\n')
            out += "\\n";
        else if (all[i] == '\t')
            out += "\\t";
        else if (all[i] != '\r')
            out += all[i];
    }
    return out;
}

void PrintTree(const XmlElement* root) {
    // Iterative walk: a tree built by a program may be deeper than the stack.
    std::string line;
    XmlWalkTree(root, [&](const XmlElement* e, int depth) {
        line.assign(size_t(depth) * 2, ' ');
        line += Utf8(e->Name());
        for (int i = 0; i < e->AttributeCount(); ++i)
            line += " " + Utf8(e->GetAttributeName(i)) + "=\"" + Utf8(e->GetAttributeValue(i)) + "\"";
        const std::string text = Trimmed(e->Data());
        if (!text.empty())
            line += " : \"" + text + "\"";
        std::fwrite(line.data(), 1, line.size(), stdout);
        std::fputc('\n', stdout);
        return true;
    });
}

int Tree(int argc, char** argv) {
    Args args;
    if (!ReadArgs("tree", argc, argv, {}, {}, args) || !CountFiles("tree", args, 1, 1))
        return kExitUsage;
    XmlDocument doc;
    Progress progress(1);
    progress.At(0, args.files[0]);
    const bool ok = Parse(doc, args.files[0], false);
    if (ok && doc.RootElement())
        PrintTree(doc.RootElement());
    return ok ? kExitOk : kExitFailed;
}

// ---- write ----

// Sends text to the file as UTF-16LE with a byte-order mark, or as UTF-8.
bool PutText(std::FILE* file, const UCString& text, bool utf16) {
    if (!utf16) {
        std::string bytes;
        OzmGlob::WStringToString(text, bytes, csetUTF8);
        return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    }
    std::string bytes;
    bytes.reserve(2 * text.size() + 2);
    bytes += "\xFF\xFE";
    for (UCChar c : text) {
        bytes += char(c & 0xFF);
        bytes += char(c >> 8);
    }
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

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
    UCString text;
    XmlOutputStream out;
    out.SetString(&text);
    const bool withExternals = has("--externals"), lineBreaks = !has("--no-indent"), escape = !has("--no-escape"),
               writeEmpty = !has("--drop-empty");
    doc.Write(out, withExternals, lineBreaks, escape, parts, writeEmpty);
    out.Close();

    const auto target = args.options.find("-o");
    if (target == args.options.end()) {
        if (!PutText(stdout, text, utf16) || std::fflush(stdout) != 0) {
            std::fprintf(stderr, "ozmxml write: cannot write to standard output: %s\n", std::strerror(errno));
            return kExitFailed;
        }
        return kExitOk;
    }
    std::FILE* file = std::fopen(target->second.c_str(), "wb");
    bool ok = file && PutText(file, text, utf16);
    if (file && std::fclose(file) != 0)
        ok = false;
    if (!ok) {
        std::fprintf(stderr, "%s: cannot write: %s\n", target->second.c_str(), std::strerror(errno));
        return kExitFailed;
    }
    return kExitOk;
}

// ---- dtd ----

std::string DotQuoted(const UCChar* text) {
    std::string out = "\"";
    for (char c : Utf8(text)) {
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
    std::printf("digraph dtd {\n  rankdir=LR;\n  ordering=out;\n  node [fontname=\"Helvetica\", fontsize=11];\n"
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
        std::printf("  %s [shape=box, label=%s\"%s];\n", elementId(def->Name()).c_str(), label.c_str(),
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
                    std::printf("  %s [shape=box, style=dashed, label=%s];\n", to.c_str(),
                                DotQuoted(part.Name()).c_str());
                const char* mod = ModText(part.CountMod());
                std::printf("  %s -> %s%s%s%s;\n", p.from.c_str(), to.c_str(), *mod ? " [label=\"" : "", mod,
                            *mod ? "\"]" : "");
            } else if (part.Type() == cpSequence || part.Type() == cpChoice) {
                const std::string id = "g" + std::to_string(groups++);
                const char* kind = def->Type() == elemMixed ? "mixed" : part.Type() == cpSequence ? "seq" : "choice";
                std::printf("  %s [shape=ellipse, label=\"%s%s%s\"];\n  %s -> %s [style=dotted];\n", id.c_str(),
                            kind, *ModText(part.CountMod()) ? " " : "", ModText(part.CountMod()), p.from.c_str(),
                            id.c_str());
                for (int k = part.Count() - 1; k >= 0; --k)
                    stack.push_back({&part[k], id});
            }
        }
    }
    std::printf("}\n");
}

void PrintDtd(const XmlDtd& dtd) {
    UCString text;
    XmlOutputStream out;
    out.SetString(&text);
    const bool withExternals = false, lineBreaks = true, escape = true;
    dtd.Write(out, withExternals, lineBreaks, escape);
    out.Close();
    PutText(stdout, text, false);
    if (!text.empty() && text.back() != u'\n')
        std::fputc('\n', stdout);
}

int Dtd(int argc, char** argv) {
    Args args;
    if (!ReadArgs("dtd", argc, argv, {"--dot", "--generate", "--external"}, {}, args))
        return kExitUsage;
    auto has = [&](const char* option) { return args.options.count(option) != 0; };
    if (has("--generate") && has("--external")) {
        std::fprintf(stderr, "ozmxml dtd: --generate and --external exclude each other\n");
        return kExitUsage;
    }
    if (!CountFiles("dtd", args, 1, has("--generate") ? size_t(-1) : 1))
        return kExitUsage;
    XmlDocument result;
    if (has("--external")) {
        const std::string& file = args.files[0];
        if (IsStdin(file)) {
            std::fprintf(stderr, "ozmxml dtd: --external reads a file, not standard input\n");
            return kExitUsage;
        }
        if (!Readable(file))
            return kExitFailed;
        if (result.ParseExternalDTD(Wide(file.c_str()).c_str()) != errNone) {
            std::string where = Utf8(result.ErrorFile());
            std::fprintf(stderr, "%s:%d:%d: %s\n", where.empty() ? file.c_str() : where.c_str(), result.ErrorLine(),
                         result.ErrorCol(), Utf8(result.ErrorMessage()).c_str());
            return kExitFailed;
        }
        if (!has("--dot"))
            std::printf("root: %s\n", Utf8(result.GetDTD().DocType().c_str()).c_str());
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
        result.GenerateDTD(trees);
    } else {
        if (!Parse(result, args.files[0], false))
            return kExitFailed;
        if (!result.GetDTD().HaveContents() && result.GetDTD().DocType().empty()) {
            std::fprintf(stderr, "%s: no document type declaration (ozmxml dtd --generate infers one)\n",
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
        std::fputs(kToolHelp, stderr);
        return kExitUsage;
    }
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        std::fputs(kToolHelp, stdout);
        return kExitOk;
    }
    if (command == "--version") {
        std::printf("ozmxml %s\n", OZMXML_VERSION);
        return kExitOk;
    }
    struct Command {
        const char* name;
        const char* help;
        int (*run)(int, char**);
    };
    static const Command commands[] = {
        {"check", kCheckHelp, Check}, {"tree", kTreeHelp, Tree}, {"write", kWriteHelp, Write}, {"dtd", kDtdHelp, Dtd}};
    for (const Command& c : commands) {
        if (command != c.name)
            continue;
        if (WantsHelp(argc - 2, argv + 2)) {
            std::fputs(c.help, stdout);
            return kExitOk;
        }
        return c.run(argc - 2, argv + 2);
    }
    std::fprintf(stderr, "ozmxml: unknown command %s (see ozmxml --help)\n", command.c_str());
    return kExitUsage;
}
