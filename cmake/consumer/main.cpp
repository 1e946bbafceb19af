// Parses a small document through the installed library and prints the name
// of its root and the first child's text.
#include <cstdio>
#include <string>

#include "xmlapi.h"

int main() {
    XmlDocument doc;
    if (doc.ParseString(u"<greeting><text>hello</text></greeting>") != errNone)
        return 1;
    std::string root, text;
    OzmGlob::WStringToString(doc.RootElement()->Name(), root, csetUTF8);
    OzmGlob::WStringToString(doc.RootElement()->Child()->Data(), text, csetUTF8);
    std::printf("%s: %s\n", root.c_str(), text.c_str());
    return root == "greeting" && text == "hello" ? 0 : 1;
}
