// The character stream and the tokenisers through ParseString: line-end
// folding, the place an error or the last token is reported at, the token
// text a failure names, and what a document that parses holds.
#include "test_util.h"

namespace {

const UCString kNest = u"Improper element nesting", kVer = u"Unsupported XML version 2.0";

// On success the place is that of the last token read.
TEST(CharStreamTest, LineEndsAndPositions) {
    CheckParses({
        {u"<a>x\r\ny</a>", errNone, u"", 2, 2, u"a{x\ny}"},
        {u"<a>x\ry</a>", errNone, u"", 2, 1, u"a{x\ny}"},  // y read behind the CR comes back uncounted
        {u"<a>x\r\ry</a>", errNone, u"", 3, 1, u"a{x\n\ny}"},
        {u"<a>x\r</a>", errNone, u"", 2, 0, u"a{x\n}"},
        {u"<a>\n\r</a>", errNone, u"", 3, 0, u"a{\n\n}"},
        {u"<a>x\u2028y</a>", errNone, u"", 2, 2, u"a{x\u2028y}"},
        {u"<a>x\x85" u"y</a>", errNone, u"", 1, 7, u"a{x\x85" u"y}"},
        {u"<a>x\r", errSyntax, Ux(kEof), 1, 5, u""},
        {u"<a>x\r\r", errSyntax, Ux(kEof), 2, 0, u""},
        {u"<a>x\r\n", errSyntax, Ux(kEof), 2, 0, u""},
        {u"<a>x\x85", errSyntax, Ux(kEof), 1, 5, u""},
        {u"<a\n  b>", errSyntax, Ux(u">"), 3, 4, u""},  // a line end behind a name counts twice
        {u"<a\r\n b>", errSyntax, Ux(u">"), 3, 3, u""},
        {u"<a\tb='1'\r\n  c>", errSyntax, Ux(u">"), 2, 4, u""},
        {u"<a\u2028/>", errSyntax, Ux(u"\u2028"), 3, 0, u""},
        {u"<a b\n=\n'1'\n/>", errNone, u"", 5, 1, u"a{}[b=1]"},
        {u"<a\n/>", errNone, u"", 3, 1, u"a{}"},
        {u"<a\rb='1'/>", errNone, u"", 3, 5, u"a{}[b=1]"},
        {u"\n\n  hello<a/>", errSyntax, Ux(u"hello"), 3, 3, u""},
        {u"<!--\n\n-->\n  hello<a/>", errSyntax, Ux(u"hello"), 4, 3, u""},
        {u"<! ENTITY x 'y'><a/>", errDeclInProlog, Ux(u"<!ENTITY"), 1, 4, u""},
        {u"<!\nENTITY x 'y'><a/>", errDeclInProlog, Ux(u"<!ENTITY"), 3, 0, u""},
        {u"<a>x\n</b>", errSyntax, kNest, 2, 1, u""},
        {u"<a><b/>\n", errSyntax, Ux(kEof), 2, 0, u""},
        // 0xFFFF ends the token that reads it, as the end of input, but counts as a column.
        {u"<a>x\xFFFFy</b>", errSyntax, kNest, 1, 7, u""},
        {u"<a \xFFFF/>", errSyntax, Ux(kEof), 1, 4, u""},
        {u"<a b=\"x\xFFFFy\"/>", errSyntax, Ux(u"x"), 1, 6, u""},
        {u"<a><!--x\xFFFFy--></a>", errSyntax, Ux(u"x"), 1, 3, u""},
        {u"\xFFFF<a/>", errNone, u"", 1, 1, u""},
        {u"<a>x\xFFFFy</a>", errNone, u"", 1, 7, u"a{xy}"},
        {u"<!DOCTYPE a [<!ELEMENT a ANY><!ENTITY e 'x\ny z'>]><a>&e;</b>", errSyntax, kNest, 3, 1, u""},
        {u"<!DOCTYPE a [<!ELEMENT a ANY><!ENTITY e 'x\ny z'>]><a>&e;tail</b>", errSyntax, kNest, 3, 5, u""},
    });
}

TEST(CharStreamTest, NameCharacters) {
    std::vector<ParseRow> rows = {{u"<a 1b='1'/>", errSyntax, Ux(u"1"), 1, 4, u""}};
    for (UCString n : {u"a-b.c", u":x", u"\u02BB", u"\u06E6x", u"\u4E00", u"\u2160", u"\u01C5", u"a\u0301",
                       u"a\u0661", u"a\u02B0", u"A\u0903", u"_-.9"})
        rows.push_back({u"<" + n + u" " + n + u"='v'/>", errNone, u"", -1, 0, n + u"{}[" + n + u"=v]"});
    for (UCString s : {u"1a", u"-a", u"\u0301a", u"\u0661", u"\u02B0", u"\u20DD", u"\u00B7", u"\xD800"})
        rows.push_back({u"<" + s + u"/>", errSyntax, Ux(u"<"), 1, 2, u""});
    for (UCString c : {u"\u20DD", u"\uF900", u"\xFFFE", u"\xD800", u"!", u"\u2029"})
        rows.push_back({u"<a" + c + u"/>", errSyntax, Ux(c), 1, 3, u""});
    CheckParses(rows);
}

// The prolog, then content, then start tags.
TEST(TokenTest, PrologContentAndStartTags) {
    CheckParses({
        {u"", errNone, u"", 1, 0, u""},
        {u"<!-- c -->", errNone, u"", 1, 10, u""},
        {u"<!FOO><a/>", errNone, u"", 1, 4, u""},
        {u"%pe <a/>", errNone, u"", 1, 1, u""},
        {u"?x<a/>", errNone, u"", 1, 1, u""},
        {u"<!---><a/>", errNone, u"", 1, 1, u""},
        {u"<?pi data", errNone, u"", 1, 9, u""},
        {u"hello<a/>", errSyntax, Ux(u"hello"), 1, 1, u""},
        {u"%pe;<a/>", errSyntax, Ux(u"%pe"), 1, 1, u""},
        {u"?><a/>", errSyntax, Ux(u"?>"), 1, 1, u""},
        {u"'a\r\nb'<a/>", errSyntax, Ux(u"a\nb"), 1, 1, u""},
        {u"</a>", errSyntax, Ux(u"a"), 1, 2, u""},
        {u"< !DOCTYPE a><a/>", errSyntax, Ux(u"<"), 1, 2, u""},
        {u"<![INCLUDE[<a/>", errSyntax, Ux(u"<!["), 1, 4, u""},
        {u"<!ATTLIST a b CDATA \"c\"><a/>", errSyntax, Ux(u"<!ATTLIST"), 1, 4, u""},
        {u"<!ENTITY x \"y\"><a/>", errDeclInProlog, Ux(u"<!ENTITY"), 1, 4, u""},
        {u"<!element a ANY><a/>", errDeclInProlog, Ux(u"<!element"), 1, 4, u""},
        {u"<?1?><a/>", errSyntax, Ux(u"<?"), 1, 3, u""},
        {u"<?", errSyntax, Ux(u"<?"), 1, 2, u""},
        {u"<!1><a/>", errSyntax, Ux(u"<!"), 1, 4, u""},
        {u"<!-x><a/>", errSyntax, Ux(u"<!"), 1, 4, u""},
        {u"<!", errSyntax, Ux(u"<!"), 1, 2, u""},
        {u"<?pi data?><a/>", errNone, u"", 1, 14, u"a{}"},
        {u"<?pi 'x?>y' ?><a/>", errNone, u"", 1, 17, u"a{}"},
        {u"<?xml-stylesheet href='s'?><a/>", errNone, u"", 1, 30, u"a{}"},
        {u"<!-- a -- b --><a/>", errNone, u"", 1, 18, u"a{}"},
        {u"<!--1--><?p?>\n<!--2-->\n<r/>", errNone, u"", 3, 3, u"r{}"},
        // "<?xml" in any case declares only ahead of all but comments and
        // instructions; in a string only its version and standalone count.
        {u"<?xml version='2.0'?><a/>", errSyntax, kVer, -1, 0, u""},
        {u"<?XmL version='2.0'?><a/>", errSyntax, kVer, -1, 0, u""},
        {u"<? xml version='2.0'?><a/>", errSyntax, kVer, -1, 0, u""},
        {u"<!-- c --><?xml version='2.0'?><a/>", errSyntax, kVer, -1, 0, u""},
        {u"<?xml?><a/>", errNone, u"", -1, 0, u"a{}"},
        {u"<?XML VERSION='1' standalone=\"YES\" encoding=\"no-such-set\"?><a/>", errNone, u"", -1, 0, u"a{}"},
        {u"<!-- c --><?xml version=\"1.0x\"?><?xml version=\"2.0\"?><a/>", errNone, u"", -1, 0, u"a{}"},
        {u"<?xml version=\"1.1\"?><a/>", errSyntax, u"Unsupported XML version 1.1", -1, 0, u""},
        {u"<?xml version=\"abc\"?><a/>", errSyntax, u"Unsupported XML version 0.0", -1, 0, u""},
        {u"<?xml standalone=\"never\"?><a/>", errSyntax, u"Standalone attribute must be 'yes' or 'no'", -1, 0, u""},
        {u"<?xml version \"1.0\"?><a/>", errSyntax, u"Unexpected token '1.0'", -1, 0, u""},
        {u"<?xml foo=\"1\"?><a/>", errSyntax, u"Invalid attribute 'foo' in XMLDecl", -1, 0, u""},
        {u"<?xml version=\"1.0\"><a/>", errSyntax, u"Unexpected token '>'", -1, 0, u""},
        {u"<?xml version=\"1.0\"", errSyntax, u"Unexpected token '\uFFFF'", -1, 0, u""},
        {u"<?xml version=1.0?><a/>", errSyntax, u"Unexpected token '1'", -1, 0, u""},
        {u"<a></a >", errSyntax, Ux(u"a"), 1, 3, u""},
        {u"<a></>", errSyntax, Ux(u"<"), 1, 3, u""},
        {u"<a><![CDATA[x]]></a>", errSyntax, Ux(u"<"), 1, 3, u""},
        {u"<a>x<1/></a>", errSyntax, Ux(u"<"), 1, 5, u""},
        {u"<a><!-- open", errSyntax, Ux(u" open"), 1, 3, u""},
        {u"<a>", errSyntax, Ux(kEof), 1, 3, u""},
        {u"<a>text", errSyntax, Ux(kEof), 1, 7, u""},
        {u"<a>&nosuch;</a>", errSyntax, Ux(u"&nosuch;"), 1, 3, u""},
        {u"<a>&abc", errSyntax, Ux(u"&abc" + kEof), 1, 3, u""},
        {u"<a>&LT;</a>", errSyntax, Ux(u"&LT;"), 1, 3, u""},
        {u"<a>&#65", errSyntax, Ux(u"&"), 1, 3, u""},
        {u"<a>x&#6x;</a>", errSyntax, Ux(u"&"), 1, 5, u""},
        {u"<a>&</a>", errSyntax, Ux(u"&"), 1, 3, u""},
        {u"<a>&lt;&gt;&amp;&apos;&quot;</a>", errNone, u"", -1, 0, u"a{<>&'\"}"},
        {u"<a>&lt;b/&gt;</a>", errNone, u"", -1, 0, u"a{<b/>}"},
        {u"<a>&amp;lt;</a>", errNone, u"", -1, 0, u"a{&lt;}"},
        {u"<a>&#65;&#x42;&#X43;&#x6a;</a>", errNone, u"", -1, 0, u"a{ABCj}"},
        {u"<a>&#x1F600;</a>", errNone, u"", -1, 0, u"a{\uF600}"},  // no surrogate pair
        {u"<a>&#x;</a>", errNone, u"", -1, 0, u"a{}"},             // the value 0 ends the text
        {u"<a>ab&#0;cd</a>", errNone, u"", -1, 0, u"a{ab}"},
        {u"<a>1&amp;<b/>2</a>", errNone, u"", -1, 0, u"a{1&2}(b{})"},
        {u"<a>x<!--c-->y<!---->z</a>", errNone, u"", -1, 0, u"a{xyz}"},
        {u"<a>x<!--->-->y</a>", errNone, u"", -1, 0, u"a{xy}"},
        {u"<a>]]>></a>", errNone, u"", -1, 0, u"a{]]>>}"},
        {u"<a>'\"=?%[]/</a>", errNone, u"", -1, 0, u"a{'\"=?%[]/}"},
        {u"<a b>", errSyntax, Ux(u">"), 1, 5, u""},
        {u"<a b=1/>", errSyntax, Ux(u"1"), 1, 6, u""},
        {u"<a b c='1'/>", errSyntax, Ux(u"c"), 1, 6, u""},
        {u"<a ='1'/>", errSyntax, Ux(u"="), 1, 4, u""},
        {u"<a / >", errSyntax, Ux(u"/"), 1, 4, u""},
        {u"<a b='1'?>", errSyntax, Ux(u"?"), 1, 9, u""},
        {u"<a b='1'", errSyntax, Ux(kEof), 1, 8, u""},
        {u"<a b='1", errSyntax, Ux(u"1"), 1, 6, u""},
        {u"<a b='1'c=\"2\"/>", errNone, u"", -1, 0, u"a{}[b=1][c=2]"},
        {u"<a  b  =  '1'  />", errNone, u"", -1, 0, u"a{}[b=1]"},
        {u"<a b='x\"y' c=\"p'q\"/>", errNone, u"", -1, 0, u"a{}[b=x\"y][c=p'q]"},
        {u"<a b='<&amp;&#65;>'/>", errNone, u"", -1, 0, u"a{}[b=<&amp;&#65;>]"},  // stored raw
        {u"<a b='x\r\ny\rz\n\tw'/>", errNone, u"", -1, 0, u"a{}[b=x\ny\nz\n\tw]"},
        {u"<a b='1' b='2'/>", errNone, u"", -1, 0, u"a{}[b=1][b=2]"},
    });
}

}  // namespace
