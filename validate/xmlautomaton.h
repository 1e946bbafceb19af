// xmlautomaton.h - a content model compiled for matching: the positions of
// its names (the Glushkov automaton of the model) with the structure that
// tells which position may follow which, and states made on demand.
//
// No follow set is ever built whole: whether position q may follow position
// p is answered from the tree of the model (their lowest common group, the
// repeated groups above it, and which members of a sequence may be left
// out), so compiling costs time linear in the size of the model. A state is
// a set of positions, a single one for a deterministic model; each
// transition is worked out the first time a state meets a name and kept, so
// that matching the children of an element costs one lookup per child.
// Nothing here recurses.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "xmldtd.h"

class XmlAutomaton {
public:
    // Compiles model, the contents of an element definition of type
    // elemChildren; key gives the number under which a name is matched.
    template <class KeyOf>
    void Build(const XmlContentPart& model, KeyOf&& key, int keyRange) {
        m_keyRange = uint32_t(keyRange);
        Flatten(model);
        for (size_t i = 0; i < m_nodes.size(); ++i)
            if (m_nodes[i].type == cpName) {
                m_nodes[i].name = m_parts[i]->Name();
                m_nodes[i].key = key(m_nodes[i].name);
            }
        Analyse();
    }

    // Whether the model is deterministic, as XML asks: from no state may a
    // name lead to two positions. On false, conflict is the name that may
    // match at two places. A model so large that the test would cost more
    // than a fixed budget gives true and sets Undecided().
    bool Deterministic(const UCChar*& conflict);
    bool Undecided() const { return m_undecided; }

    static constexpr int Start = 0;
    static constexpr int Dead = -1;
    // The state after state has met a child with name key; Dead when the
    // model allows no such child there. Keys below the range given to Build
    // are answered from a table of rows, one per state met, while the table
    // stays small; others from a hash map.
    int Next(int state, int key) {
        if (const int* row = Row(state)) {
            if (uint32_t(key) < m_keyRange && row[key] != kUnknown)
                return row[key];
        }
        return SlowNext(state, key);
    }
    // The row of state in the table (indexed by key, kUnknown where not yet
    // worked out), or null; it stays in place while the automaton lives.
    const int* Row(int state) const {
        return size_t(state) < m_rows.size() ? m_rows[size_t(state)].get() : nullptr;
    }
    uint32_t KeyRange() const { return m_keyRange; }
    // Whether the content may end in state.
    bool Accepting(int state) const { return m_accepting[size_t(state)]; }
    // Whether state holds more than one position: the model is ambiguous
    // there.
    bool Ambiguous(int state) const { return m_states[size_t(state)].size() > 1; }
    // Up to most names that may come next in state, in the order of the
    // model, each once; more is set when there are further ones.
    void Expected(int state, size_t most, std::vector<const UCChar*>& names, bool& more) const;

private:
    struct Node {
        int parent = -1;
        int depth = 0;
        int type = cpNone;
        int mod = countOne;
        int firstChild = 0;  // children stand one after another from here
        int children = 0;
        int index = 0;       // place among the parent's children
        int key = -1;        // a position's name, as matched
        const UCChar* name = nullptr;  // and as written
        bool nullable = false;
        bool iterated = false;
        bool hasPositions = false;
        bool firstOk = false;  // begins its parent whenever it begins
        bool lastOk = false;   // ends its parent whenever it ends
        int nonNullBefore = 0; // members before it in a sequence that cannot be left out
        int nonNull = 0;       // of a sequence: its members that cannot be left out
        int first = 0;         // depth of the highest group this node's first positions begin
        int last = 0;          // depth of the highest group this node's last positions end
        int repeated = -1;     // the deepest node at or above this one with * or +
        int order = 0;         // place in the model as written
    };

    void Flatten(const XmlContentPart& model);
    void Analyse();
    static constexpr int kUnknown = -2;
    // Follow tests that Expected may make.
    static constexpr size_t kExpectedTests = size_t(1) << 14;
    // Table entries (rows of m_keyRange) allowed before the hash map serves.
    static constexpr size_t kTableLimit = size_t(1) << 20;
    int SlowNext(int state, int key);
    int Transition(int state, int key);
    int Intern(std::vector<int>& positions);
    // Whether position q may follow position p (Start's p is -1).
    bool Follows(int p, int q) const;
    // Appends the first positions of node to out, with the work counted.
    void FirstPositions(int node, std::vector<int>& out, uint64_t& work) const;

    std::vector<Node> m_nodes;
    std::vector<const XmlContentPart*> m_parts;  // the part of each node, while building
    std::unordered_map<int, std::vector<int>> m_byKey;  // positions by name
    std::vector<std::vector<int>> m_states;  // the positions of each state; -1 stands for the start
    std::vector<bool> m_accepting;
    std::map<std::vector<int>, int> m_stateIds;
    std::unordered_map<uint64_t, int> m_transitions;
    uint32_t m_keyRange = 0;
    std::vector<std::unique_ptr<int[]>> m_rows;  // by state, null without a row
    size_t m_tableSize = 0;                      // entries in all rows
    bool m_undecided = false;
};
