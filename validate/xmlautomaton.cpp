// XmlAutomaton: content models compiled for matching (see xmlautomaton.h).
//
// The model is laid out breadth first, so that the members of a group stand
// one after another and every parent before its children. A position is a
// node that names an element. For a node, "first" is the depth of the
// highest group whose first positions include the node's own, and "last" the
// same for the last positions: a position p can end group g exactly when g
// lies on p's chain of parents no higher than last(p).
//
// Position q follows position p when either
// - a repeated group (* or +) at or above their lowest common group a can
//   end with p and begin with q; the deepest such group is the best one, or
// - a is a sequence, p lies in member i and q in member j > i, p can end
//   member i, q can begin member j, and every member between them can be
//   left out.
#include "validate/xmlautomaton.h"

#include <algorithm>

namespace {

// Steps the determinism test may take for one model before it gives up.
constexpr uint64_t kDeterminismBudget = uint64_t(1) << 24;

}  // namespace

void XmlAutomaton::Flatten(const XmlContentPart& model) {
    m_nodes.clear();
    m_parts.clear();
    m_nodes.emplace_back();
    m_parts.push_back(&model);
    for (size_t i = 0; i < m_nodes.size(); ++i) {
        const XmlContentPart& part = *m_parts[i];
        Node& n = m_nodes[i];
        n.type = part.Type();
        n.mod = part.CountMod();
        if (n.type != cpSequence && n.type != cpChoice)
            continue;
        const int count = part.Count();
        n.firstChild = int(m_nodes.size());
        n.children = count;
        const int depth = n.depth + 1;  // n is not used below: the vector grows
        for (int k = 0; k < count; ++k) {
            Node child;
            child.parent = int(i);
            child.depth = depth;
            child.index = k;
            m_nodes.push_back(child);
            m_parts.push_back(&part[k]);
        }
    }
}

void XmlAutomaton::Analyse() {
    // Bottom up: what can be left out, what holds positions.
    for (size_t i = m_nodes.size(); i-- > 0;) {
        Node& n = m_nodes[i];
        if (n.type == cpName) {
            n.nullable = false;
            n.hasPositions = true;
            m_byKey[n.key].push_back(int(i));
        } else if (n.type == cpSequence || n.type == cpChoice) {
            bool all = true, any = n.children == 0;
            for (int k = 0; k < n.children; ++k) {
                const Node& c = m_nodes[size_t(n.firstChild + k)];
                all = all && c.nullable;
                any = any || c.nullable;
                n.hasPositions = n.hasPositions || c.hasPositions;
            }
            n.nullable = n.type == cpSequence ? all : any;
        } else {
            n.nullable = true;  // an empty part matches nothing at all
        }
        if (n.mod == countStar || n.mod == countOptional)
            n.nullable = true;
        n.iterated = n.mod == countStar || n.mod == countPlus;
    }
    // The positions were gathered from the back.
    for (auto& entry : m_byKey)
        std::reverse(entry.second.begin(), entry.second.end());
    // Top down: the place of each member in its sequence, and how far up its
    // first and last positions reach.
    for (size_t i = 0; i < m_nodes.size(); ++i) {
        Node& n = m_nodes[i];
        if (n.type == cpSequence) {
            int before = 0;
            for (int k = 0; k < n.children; ++k) {
                Node& c = m_nodes[size_t(n.firstChild + k)];
                c.nonNullBefore = before;
                before += c.nullable ? 0 : 1;
            }
            n.nonNull = before;
        }
        if (n.parent < 0) {
            n.first = n.last = 0;
            n.repeated = n.iterated ? int(i) : -1;
            continue;
        }
        const Node& parent = m_nodes[size_t(n.parent)];
        const bool inSequence = parent.type == cpSequence;
        n.firstOk = !inSequence || n.nonNullBefore == 0;
        n.lastOk = !inSequence || parent.nonNull - n.nonNullBefore - (n.nullable ? 0 : 1) == 0;
        n.first = n.firstOk ? parent.first : n.depth;
        n.last = n.lastOk ? parent.last : n.depth;
        n.repeated = n.iterated ? int(i) : parent.repeated;
    }
    // The order of writing, for messages.
    std::vector<int> stack(1, 0);
    for (int order = 0; !stack.empty(); ++order) {
        const Node& n = m_nodes[size_t(stack.back())];
        m_nodes[size_t(stack.back())].order = order;
        stack.pop_back();
        if (n.type == cpSequence || n.type == cpChoice)
            for (int k = n.children; k-- > 0;)
                stack.push_back(n.firstChild + k);
    }
    m_parts.clear();
    m_states.assign(1, std::vector<int>(1, -1));
    m_accepting.assign(1, m_nodes[0].nullable);
    m_stateIds.clear();
    m_stateIds.emplace(m_states[0], 0);
}

bool XmlAutomaton::Follows(int p, int q) const {
    const Node& nq = m_nodes[size_t(q)];
    if (p < 0)
        return nq.first == 0;
    const Node& np = m_nodes[size_t(p)];
    // The lowest common group, and the members of it that hold p and q.
    int a = p, b = q, fromP = -1, fromQ = -1;
    while (m_nodes[size_t(a)].depth > m_nodes[size_t(b)].depth) {
        fromP = a;
        a = m_nodes[size_t(a)].parent;
    }
    while (m_nodes[size_t(b)].depth > m_nodes[size_t(a)].depth) {
        fromQ = b;
        b = m_nodes[size_t(b)].parent;
    }
    while (a != b) {
        fromP = a;
        fromQ = b;
        a = m_nodes[size_t(a)].parent;
        b = m_nodes[size_t(b)].parent;
    }
    const Node& common = m_nodes[size_t(a)];
    if (common.repeated >= 0) {
        const int depth = m_nodes[size_t(common.repeated)].depth;
        if (depth >= np.last && depth >= nq.first)
            return true;
    }
    if (common.type != cpSequence || fromP < 0 || fromQ < 0)
        return false;
    const Node& mp = m_nodes[size_t(fromP)];
    const Node& mq = m_nodes[size_t(fromQ)];
    return mp.index < mq.index && np.last <= mp.depth && nq.first <= mq.depth &&
           mq.nonNullBefore - mp.nonNullBefore - (mp.nullable ? 0 : 1) == 0;
}

int XmlAutomaton::Intern(std::vector<int>& positions) {
    std::sort(positions.begin(), positions.end());
    positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
    auto it = m_stateIds.find(positions);
    if (it != m_stateIds.end())
        return it->second;
    bool accepting = false;
    for (int p : positions)
        accepting = accepting || (p < 0 ? m_nodes[0].nullable : m_nodes[size_t(p)].last == 0);
    const int id = int(m_states.size());
    m_states.push_back(positions);
    m_accepting.push_back(accepting);
    m_stateIds.emplace(std::move(positions), id);
    return id;
}

int XmlAutomaton::SlowNext(int state, int key) {
    const uint64_t k = uint64_t(uint32_t(state)) << 32 | uint32_t(key);
    auto it = m_transitions.find(k);
    if (it != m_transitions.end())
        return it->second;
    const int next = Transition(state, key);
    if (uint32_t(key) < m_keyRange) {
        if (m_rows.size() <= size_t(state))
            m_rows.resize(size_t(state) + 1);
        if (!m_rows[size_t(state)] && m_tableSize + m_keyRange <= kTableLimit) {
            m_rows[size_t(state)].reset(new int[m_keyRange]);
            std::fill_n(m_rows[size_t(state)].get(), m_keyRange, kUnknown);
            m_tableSize += m_keyRange;
        }
        if (m_rows[size_t(state)]) {
            m_rows[size_t(state)][uint32_t(key)] = next;
            return next;
        }
    }
    m_transitions.emplace(k, next);
    return next;
}

int XmlAutomaton::Transition(int state, int key) {
    auto candidates = m_byKey.find(key);
    if (candidates == m_byKey.end())
        return Dead;
    std::vector<int> next;
    for (int p : m_states[size_t(state)])
        for (int q : candidates->second)
            if (Follows(p, q))
                next.push_back(q);
    return next.empty() ? Dead : Intern(next);
}

void XmlAutomaton::Expected(int state, size_t most, std::vector<const UCChar*>& names, bool& more) const {
    names.clear();
    more = false;
    std::vector<std::pair<int, int>> found;  // (order, position), one per name
    // A message needs a few names: a huge model is not searched whole.
    size_t tests = 0;
    for (size_t q = 0; q < m_nodes.size(); ++q) {
        const Node& n = m_nodes[q];
        if (n.type != cpName)
            continue;
        if ((tests += m_states[size_t(state)].size()) > kExpectedTests) {
            more = true;
            break;
        }
        bool follows = false;
        for (int p : m_states[size_t(state)])
            follows = follows || Follows(p, int(q));
        if (!follows)
            continue;
        bool known = false;
        for (auto& f : found)
            if (m_nodes[size_t(f.second)].key == n.key) {
                known = true;
                f = std::min(f, std::make_pair(n.order, int(q)));
            }
        if (!known)
            found.emplace_back(n.order, int(q));
    }
    std::sort(found.begin(), found.end());
    for (const auto& f : found) {
        if (names.size() == most) {
            more = true;
            break;
        }
        names.push_back(m_nodes[size_t(f.second)].name);
    }
}

void XmlAutomaton::FirstPositions(int node, std::vector<int>& out, uint64_t& work) const {
    std::vector<int> stack(1, node);
    while (!stack.empty()) {
        const Node& n = m_nodes[size_t(stack.back())];
        const int at = stack.back();
        stack.pop_back();
        ++work;
        if (n.type == cpName) {
            out.push_back(at);
            continue;
        }
        // Members pushed from the back, so that they come out in order.
        int end = n.children;
        if (n.type == cpSequence)
            for (int k = 0; k < n.children; ++k)
                if (!m_nodes[size_t(n.firstChild + k)].nullable) {
                    end = k + 1;
                    break;
                }
        for (int k = end; k-- > 0;)
            if (m_nodes[size_t(n.firstChild + k)].hasPositions)
                stack.push_back(n.firstChild + k);
    }
}

// The positions that may follow the end of node n, as far as n itself
// brings them: its own first positions again when it repeats, and the
// first positions of the members of its sequence that may come next. What
// may follow position p is the union of this over p's chain of parents up to
// the highest group that p can end. Those chains form trees (a node and its
// members that can end it), walked depth first with a count per name of the
// positions that may come next: two positions of one name at once are the
// conflict.
bool XmlAutomaton::Deterministic(const UCChar*& conflict) {
    conflict = nullptr;
    m_undecided = false;
    uint64_t work = 0;
    std::unordered_map<int, std::pair<int, int>> seen;  // key -> (position, count)
    std::vector<int> added;
    auto add = [&](int q) {
        auto& slot = seen[m_nodes[size_t(q)].key];
        if (slot.second > 0 && slot.first != q) {
            conflict = m_nodes[size_t(q)].name;
            return false;
        }
        slot.first = q;
        ++slot.second;
        return true;
    };
    auto remove = [&](int q) { --seen[m_nodes[size_t(q)].key].second; };

    // From the start: the first positions of the whole model.
    FirstPositions(0, added, work);
    for (int q : added)
        if (!add(q))
            return false;
    for (int q : added)
        remove(q);

    struct Frame {
        int node;
        size_t addedFrom;  // where this node's own positions begin in added
        int nextChild;
    };
    std::vector<Frame> stack;
    for (size_t top = 0; top < m_nodes.size(); ++top) {
        const Node& t = m_nodes[top];
        if (!t.hasPositions || (t.parent >= 0 && t.lastOk))
            continue;  // not the top of a tree
        added.clear();
        stack.clear();
        stack.push_back({int(top), 0, -1});
        while (!stack.empty()) {
            if (work > kDeterminismBudget) {
                m_undecided = true;
                return true;
            }
            Frame& f = stack.back();
            const Node& n = m_nodes[size_t(f.node)];
            if (f.nextChild < 0) {
                // Entering: what n brings.
                f.addedFrom = added.size();
                if (n.iterated)
                    FirstPositions(f.node, added, work);
                if (n.parent >= 0 && m_nodes[size_t(n.parent)].type == cpSequence) {
                    const Node& parent = m_nodes[size_t(n.parent)];
                    for (int k = n.index + 1; k < parent.children; ++k) {
                        const Node& sibling = m_nodes[size_t(parent.firstChild + k)];
                        if (sibling.hasPositions)
                            FirstPositions(parent.firstChild + k, added, work);
                        if (!sibling.nullable)
                            break;
                    }
                }
                for (size_t i = f.addedFrom; i < added.size(); ++i)
                    if (!add(added[i]))
                        return false;
                f.nextChild = 0;
            }
            if (f.nextChild < n.children && (n.type == cpSequence || n.type == cpChoice)) {
                const int child = n.firstChild + f.nextChild++;
                const Node& c = m_nodes[size_t(child)];
                if (c.hasPositions && c.lastOk)
                    stack.push_back({child, 0, -1});
                continue;
            }
            // Leaving.
            for (size_t i = f.addedFrom; i < added.size(); ++i)
                remove(added[i]);
            added.resize(f.addedFrom);
            stack.pop_back();
        }
    }
    return true;
}
