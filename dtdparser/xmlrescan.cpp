// Rescan: the single-pass replacement of character references and
// parameter-entity references inside a finished string.
#include "input/xmlcharstream.h"

BATCHERR XmlDocument::Rescan(UCString& text, bool expandParams, bool expandCharRefs) {
    const UCChar* p = text.c_str();  // the walk stops at the first unit 0
    UCString result;
    result.reserve(text.size());
    const UCChar* const end = text.data() + text.size();
    // A unit 0 ends the walk; '&' and '%' stop it where their rule is on.
    const OzmUnits::Stops<3, false> stops(0, expandCharRefs ? '&' : 0, expandParams ? '%' : 0);
    while (*p) {
        // Units that no rule touches go over in runs.
        const UCChar* run = p;
        p = OzmUnits::Find(p, end, stops);
        result.append(run, size_t(p - run));
        if (!*p)
            break;
        if (expandCharRefs && p[0] == '&' && p[1] == '#') {
            const UCChar* start = p;
            p += 2;
            unsigned base = 10;
            if (*p == 'x' || *p == 'X') {
                base = 16;
                ++p;
            }
            uint16_t value = 0;
            for (;; ++p) {
                unsigned digit;
                if (*p >= '0' && *p <= '9')
                    digit = unsigned(*p - '0');
                else if (base == 16 && *p >= 'a' && *p <= 'f')
                    digit = unsigned(*p - 'a' + 10);
                else if (base == 16 && *p >= 'A' && *p <= 'F')
                    digit = unsigned(*p - 'A' + 10);
                else
                    break;
                value = uint16_t(value * base + digit);  // beyond 16 bits is lost
            }
            if (*p != ';')
                return SetUpError(errSyntax, u"Invalid char ref '%.4s", start);
            result.push_back(UCChar(value));
            ++p;
            continue;
        }
        if (expandParams && p[0] == '%' && IsNameStart(p[1])) {
            UCString name(1, u'%');
            ++p;
            while (*p && IsNameChar(*p))
                name.push_back(*p++);
            if (*p != ';')
                return SetUpError(errSyntax, u"Invalid parameter ref '%s'", name.c_str());
            UCString value;
            if (!m_dtd.LookupEntity(name.c_str(), value))
                return SetUpError(errSyntax, u"Parameter reference '%s' not defined", name.c_str());
            if (!CountExpansion(value.size(), u"Entity expansion exceeds %llu units at '%s;'", name.c_str()))
                return errSyntax;
            result += value;
            ++p;
            continue;
        }
        result.push_back(*p++);
    }
    text.swap(result);
    return errNone;
}
