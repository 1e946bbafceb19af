// xmltree - parses an XML file and prints its element tree, or the error as
// file:line:col: message.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "xmlapi.h"

namespace {

std::string Utf8(const UCChar* text) {
    std::string out;
    OzmGlob::WStringToString(UCString(text), out, csetUTF8);
    return out;
}

// Prints the text with control characters made visible, on one line.
std::string Shown(const UCChar* text) {
    std::string out;
    for (const char ch : Utf8(text)) {
        if (ch == '\n')
            out += "\\n";
        else if (ch == '\t')
            out += "\\t";
        else
            out += ch;
    }
    return out;
}

void Print(const XmlElement* root) {
    // XmlWalkTree keeps its own stack: a tree built by a program may be
    // deeper than the call stack.
    XmlWalkTree(root, [](const XmlElement* e, int depth) {
        std::string line(size_t(depth) * 2, ' ');
        line += Utf8(e->Name());
        for (int i = 0; i < e->AttributeCount(); ++i)
            line += " " + Utf8(e->GetAttributeName(i)) + "=\"" + Utf8(e->GetAttributeValue(i)) + "\"";
        if (e->DataLength() > 0)
            line += " : \"" + Shown(e->Data()) + "\"";
        std::printf("%s\n", line.c_str());
        return true;
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: xmltree FILE.xml\n");
        return 2;
    }
    std::ifstream in(argv[1], std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "%s: cannot open\n", argv[1]);
        return 2;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());

    // The bytes are read as the file would be: its byte-order mark or
    // declared encoding, and bare names of external resources beside it.
    XmlDocument doc;
    const bool validate = false, ignoreDtd = false;
    const std::string path = argv[1];
    const std::string dir = path.find('/') == std::string::npos ? "." : path.substr(0, path.rfind('/'));
    UCString wideDir;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(dir.data()), dir.size(), wideDir);
    BATCHERR result = doc.ParseBytes(bytes.data(), bytes.size(), validate, ignoreDtd, wideDir.c_str());
    if (doc.RootElement())
        Print(doc.RootElement());
    if (result != errNone) {
        std::fprintf(stderr, "%s:%d:%d: %s\n", argv[1], doc.ErrorLine(), doc.ErrorCol(), Utf8(doc.ErrorMessage()).c_str());
        return 1;
    }
    return 0;
}
