// xmldeque.h - the double-ended queue of the data model.
//
// Appends never move what is stored, so pointers to elements stay valid
// until the element itself is removed, and an empty queue is one null
// pointer: it allocates nothing until the first append. Storage is a chain
// of chunks of growing size; indexing walks the chain (a few steps for the
// short lists it holds), the back is reached directly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <utility>

#include "ozmdefs.h"

template <class T>
class XmlDeque {
    struct Chunk {
        Chunk* prev;
        Chunk* next;
        uint32_t capacity;
        uint32_t used;
        T* Items() { return reinterpret_cast<T*>(this + 1); }
        const T* Items() const { return reinterpret_cast<const T*>(this + 1); }
    };

    // Head of the storage, allocated together with the first chunk, whose
    // items follow it directly; the queue itself is one pointer to it.
    struct Rep {
        size_t size;
        Chunk* last;  // the chunk holding the back; chunks after it are spare
        Chunk first;
    };
    static_assert(sizeof(Rep) == 2 * sizeof(void*) + sizeof(Chunk), "items must follow the first chunk");

public:
    typedef T value_type;

    XmlDeque() = default;
    XmlDeque(const XmlDeque& other) {
        for (const T& v : other)
            push_back(v);
    }
    XmlDeque(XmlDeque&& other) noexcept : m_rep(other.m_rep) { other.m_rep = nullptr; }
    XmlDeque& operator=(const XmlDeque& other) {
        if (this != &other) {
            XmlDeque copy(other);
            swap(copy);
        }
        return *this;
    }
    XmlDeque& operator=(XmlDeque&& other) noexcept {
        if (this != &other) {
            clear();
            std::swap(m_rep, other.m_rep);
        }
        return *this;
    }
    ~XmlDeque() { clear(); }

    void swap(XmlDeque& other) noexcept { std::swap(m_rep, other.m_rep); }

    bool empty() const { return m_rep == nullptr || m_rep->size == 0; }
    size_t size() const { return m_rep ? m_rep->size : 0; }

    OZM_ALWAYS_INLINE void push_back(const T& value) { new (Slot()) T(value); Added(); }
    void push_back(T&& value) { new (Slot()) T(std::move(value)); Added(); }
    template <class... A>
    T& emplace_back(A&&... args) {
        T* p = new (Slot()) T(std::forward<A>(args)...);
        Added();
        return *p;
    }

    // Sizes the first chunk for n elements when nothing is stored yet, so
    // that a queue whose final size is known takes no more room than that;
    // it grows as usual past n.
    void reserve(size_t n) {
        if (m_rep || n == 0)
            return;
        const uint32_t capacity = n < MaxCapacity() ? uint32_t(n) : MaxCapacity();
        NewRep(capacity);
    }

    T& back() { return m_rep->last->Items()[m_rep->last->used - 1]; }
    const T& back() const { return m_rep->last->Items()[m_rep->last->used - 1]; }
    T& front() { return m_rep->first.Items()[0]; }
    const T& front() const { return m_rep->first.Items()[0]; }

    // Removes the back. The emptied chunk is kept as a spare, so a queue used
    // as a stack does not allocate on every crossing of a chunk border.
    OZM_ALWAYS_INLINE void pop_back() {
        Chunk* c = m_rep->last;
        c->Items()[--c->used].~T();
        --m_rep->size;
        if (c->used == 0 && c->prev)
            m_rep->last = c->prev;
    }

    // Removes the back and returns it.
    OZM_ALWAYS_INLINE T take_back() {
        Chunk* c = m_rep->last;
        T* p = &c->Items()[c->used - 1];
        T v(std::move(*p));
        pop_back();
        return v;
    }

    T& operator[](size_t i) { return *At(i); }
    const T& operator[](size_t i) const { return *At(i); }

    // Removes everything and frees all storage.
    void clear() {
        if (!m_rep)
            return;
        Chunk* c = &m_rep->first;
        while (c) {
            Chunk* next = c->next;
            T* items = c->Items();
            for (uint32_t i = 0; i < c->used; ++i)
                items[i].~T();
            if (c != &m_rep->first)
                ::operator delete(c);
            c = next;
        }
        ::operator delete(m_rep);
        m_rep = nullptr;
    }

    template <class Q, class V>
    class Iter {
    public:
        typedef std::forward_iterator_tag iterator_category;
        typedef V value_type;
        typedef std::ptrdiff_t difference_type;
        typedef V* pointer;
        typedef V& reference;
        Iter() = default;
        Iter(Q* c, uint32_t i) : m_chunk(c), m_index(i) { Settle(); }
        V& operator*() const { return m_chunk->Items()[m_index]; }
        V* operator->() const { return &m_chunk->Items()[m_index]; }
        Iter& operator++() {
            ++m_index;
            Settle();
            return *this;
        }
        Iter operator++(int) {
            Iter t = *this;
            ++*this;
            return t;
        }
        bool operator==(const Iter& o) const { return m_chunk == o.m_chunk && m_index == o.m_index; }
        bool operator!=(const Iter& o) const { return !(*this == o); }

    private:
        void Settle() {
            while (m_chunk && m_index >= m_chunk->used) {
                m_chunk = m_chunk->used == 0 ? nullptr : m_chunk->next;
                m_index = 0;
            }
        }
        Q* m_chunk = nullptr;
        uint32_t m_index = 0;
    };
    typedef Iter<Chunk, T> iterator;
    typedef Iter<const Chunk, const T> const_iterator;

    iterator begin() { return iterator(m_rep ? &m_rep->first : nullptr, 0); }
    iterator end() { return iterator(); }
    const_iterator begin() const { return const_iterator(m_rep ? &m_rep->first : nullptr, 0); }
    const_iterator end() const { return const_iterator(); }

private:
    static constexpr uint32_t FirstCapacity() { return sizeof(T) >= 32 ? 4 : 16; }
    static constexpr uint32_t MaxCapacity() { return sizeof(T) >= 32 ? 1024 : 16384; }

    static Chunk* NewChunk(uint32_t capacity, Chunk* prev) {
        void* mem = ::operator new(sizeof(Chunk) + sizeof(T) * size_t(capacity));
        return InitChunk(static_cast<Chunk*>(mem), capacity, prev);
    }
    static Chunk* InitChunk(Chunk* c, uint32_t capacity, Chunk* prev) {
        c->prev = prev;
        c->next = nullptr;
        c->capacity = capacity;
        c->used = 0;
        return c;
    }

    // Storage for one more element at the back; Added() then counts it.
    OZM_ALWAYS_INLINE void* Slot() {
        if (OZM_UNLIKELY(!m_rep || m_rep->last->used == m_rep->last->capacity))
            return SlowSlot();
        Chunk* c = m_rep->last;
        return &c->Items()[c->used];
    }
    void* SlowSlot() {
        // Here, not at class scope, so that a queue can be a member of its own
        // element type (a content part holds its children).
        static_assert(sizeof(Chunk) % alignof(T) == 0, "chunk header breaks alignment");
        if (!m_rep)
            NewRep(FirstCapacity());
        Chunk* c = m_rep->last;
        if (c->used == c->capacity) {
            if (!c->next) {
                uint32_t cap = c->capacity * 2;
                if (cap > MaxCapacity())
                    cap = MaxCapacity();
                c->next = NewChunk(cap, c);
            }
            c = m_rep->last = c->next;
        }
        return &c->Items()[c->used];
    }
    void NewRep(uint32_t capacity) {
        void* mem = ::operator new(sizeof(Rep) + sizeof(T) * size_t(capacity));
        m_rep = static_cast<Rep*>(mem);
        m_rep->size = 0;
        m_rep->last = InitChunk(&m_rep->first, capacity, nullptr);
    }
    void Added() {
        ++m_rep->last->used;
        ++m_rep->size;
    }

    T* At(size_t i) const {
        Chunk* c = &m_rep->first;
        while (i >= c->used) {
            i -= c->used;
            c = c->next;
        }
        return &c->Items()[i];
    }

    Rep* m_rep = nullptr;
};
