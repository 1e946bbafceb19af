// fuzz_common.h - what the fuzz targets share: the decoding of the fuzzer's
// bytes into 16-bit text, a walk that reads every node, a scratch directory
// with the external files the documents may name, and tree comparison.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "xmlapi.h"

namespace fuzz {

// Bytes to 16-bit units: one to three byte sequences of UTF-8 give their
// unit whatever its value (surrogates and overlong forms included, so that
// every unit can be reached), four byte forms give a surrogate pair, and a
// byte that starts no such sequence stands for itself.
inline UCString Decode(const uint8_t* data, size_t size) {
    UCString out;
    out.reserve(size);
    for (size_t i = 0; i < size;) {
        const uint8_t b = data[i];
        auto cont = [&](size_t k) { return i + k < size && (data[i + k] & 0xC0) == 0x80; };
        if (b >= 0xC0 && b < 0xE0 && cont(1)) {
            out.push_back(UCChar(((b & 0x1F) << 6) | (data[i + 1] & 0x3F)));
            i += 2;
        } else if (b >= 0xE0 && b < 0xF0 && cont(1) && cont(2)) {
            out.push_back(UCChar(((b & 0x0F) << 12) | ((data[i + 1] & 0x3F) << 6) | (data[i + 2] & 0x3F)));
            i += 3;
        } else if (b >= 0xF0 && b < 0xF8 && cont(1) && cont(2) && cont(3)) {
            uint32_t c = ((b & 0x07u) << 18) | ((data[i + 1] & 0x3Fu) << 12) | ((data[i + 2] & 0x3Fu) << 6) |
                         (data[i + 3] & 0x3Fu);
            c = (c - 0x10000) & 0xFFFFF;
            out.push_back(UCChar(0xD800 + (c >> 10)));
            out.push_back(UCChar(0xDC00 + (c & 0x3FF)));
            i += 4;
        } else {
            out.push_back(UCChar(b));
            ++i;
        }
    }
    return out;
}

inline size_t Length(const UCChar* s) {
    size_t n = 0;
    while (s[n])
        ++n;
    return n;
}

// Reads everything a caller can read after a parse, so that a dangling or
// unterminated text shows up under the address checker.
inline size_t Touch(const XmlDocument& doc) {
    size_t sum = Length(doc.ErrorMessage()) + Length(doc.ErrorFile()) + size_t(doc.ErrorLine()) +
                 size_t(doc.ErrorCol());
    const XmlDtd& dtd = doc.GetDTD();
    sum += dtd.DocType().size();
    for (int i = 0; i < dtd.ElementCount(); ++i)
        sum += Length(dtd.ElementAt(i)->Name());
    XmlWalkTree(doc.RootElement(), [&sum](const XmlElement* e, int) {
        sum += Length(e->Name()) + Length(e->Data());
        for (int i = 0; i < e->AttributeCount(); ++i)
            sum += Length(e->GetAttributeName(i)) + Length(e->GetAttributeValue(i));
        return true;
    });
    return sum;
}

// A scratch directory, made once per process, holding the external subsets
// and entities of fuzz/files, which documents name by bare file names.
const std::string& ScratchDir();

// Writes bytes to a file in the scratch directory and returns its path.
inline UCString WriteScratch(const char* name, const uint8_t* data, size_t size) {
    const std::string path = ScratchDir() + "/" + name;
    FILE* f = fopen(path.c_str(), "wb");
    if (!f)
        abort();
    if (size && fwrite(data, 1, size, f) != size)
        abort();
    fclose(f);
    return UCString(path.begin(), path.end());
}

}  // namespace fuzz
