// xmlpushstack.h - the push-back stack of the character stream, stored as a
// stack of texts rather than of units.
//
// Whatever is pushed is read again before anything below it: a pushed text
// from its first unit to its last, then what lay under it. A whole entity
// value, included section or external subset is one entry, read forward by
// a cursor, so that readers can take runs of it in bulk. A single unit that
// is pushed back goes into the top text in front of its cursor when there is
// room there (the unit read last always has room), and otherwise into a
// small entry of its own.
//
// The document holds the entries (XmlDocument::m_pushBack); XmlPushStack is
// the view that works on them, made afresh for each operation at no cost.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "ozmutil.h"
#include "xmldocument.h"

struct XmlPushEntry {
    UCString text;
    size_t pos;  // next unit to read
};

class XmlPushStack {
public:
    explicit XmlPushStack(std::vector<XmlPushEntry>& texts) : m_texts(texts) {}

    bool empty() const { return m_texts.empty(); }
    // Number of texts on the stack: how deep pushed texts are nested.
    size_t depth() const { return m_texts.size(); }
    void clear() { m_texts.clear(); }

    // Pushes a text, to be read from its first unit on.
    void push(UCString&& text) {
        if (!text.empty())
            m_texts.push_back(XmlPushEntry{std::move(text), 0});
    }
    void push(const UCChar* text, size_t count) {
        if (count)
            m_texts.push_back(XmlPushEntry{UCString(text, count), 0});
    }
    // Pushes one unit.
    void push(UCChar c) {
        if (!m_texts.empty() && m_texts.back().pos > 0) {
            XmlPushEntry& top = m_texts.back();
            top.text[--top.pos] = c;
            return;
        }
        // Room in front for further single units.
        m_texts.push_back(XmlPushEntry{UCString(kSpare, UCChar(0)), kSpare - 1});
        m_texts.back().text[kSpare - 1] = c;
    }
    // Takes the next unit; the stack must not be empty.
    UCChar take() {
        XmlPushEntry& top = m_texts.back();
        UCChar c = top.text[top.pos++];
        if (top.pos == top.text.size())
            m_texts.pop_back();
        return c;
    }
    // The units of the top text still to be read; the stack must not be
    // empty.
    size_t run(const UCChar*& units) const {
        const XmlPushEntry& top = m_texts.back();
        units = top.text.data() + top.pos;
        return top.text.size() - top.pos;
    }
    // Consumes count units of the top text's run.
    void skip(size_t count) {
        XmlPushEntry& top = m_texts.back();
        top.pos += count;
        if (top.pos == top.text.size())
            m_texts.pop_back();
    }

private:
    static constexpr size_t kSpare = 16;
    std::vector<XmlPushEntry>& m_texts;
};

inline XmlPushStack XmlDocument::PushStack() { return XmlPushStack(m_pushBack); }
