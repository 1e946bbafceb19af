// xmlgenmemory.h - the working memory of DTD generation. Every allocation
// that generation makes for its own work (not for the definitions it
// builds) goes through GenMemory, which counts the bytes in use and can be
// told to fail: the tests read how much a generation needed and make any one
// of its allocations fail. A failed allocation throws std::bad_alloc, which
// GenerateDTD turns into a false result.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

// The definition's operations tell running out of memory by their results
// (a null pointer, false, or a setter that keeps the old value); generation
// turns that into std::bad_alloc like its own allocations.
template <class T>
T* XmlRequired(T* made) {
    if (!made)
        throw std::bad_alloc();
    return made;
}
inline void XmlRequired(bool done) {
    if (!done)
        throw std::bad_alloc();
}

struct GenMemory {
    // Allocations that may still succeed before one fails; negative: no
    // limit.
    long allocationsLeft = -1;
    // Bytes in use, and the most that were in use at one time.
    size_t bytes = 0;
    size_t peak = 0;

    // Makes memory the accounting of what this thread allocates through
    // GenMemory while the scope lives. Without one, nothing is counted and
    // nothing is made to fail.
    class Scope {
    public:
        explicit Scope(GenMemory& memory);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        GenMemory* m_previous;
    };

    // Throw std::bad_alloc when there is no memory or the limit is reached.
    static void* Allocate(size_t size);
    // p may be null; on failure p stays as it was.
    static void* Reallocate(void* p, size_t oldSize, size_t newSize);
    // size: what p was allocated with.
    static void Free(void* p, size_t size) noexcept;
};

// The allocator of the standard containers of generation.
template <class T>
struct GenAllocator {
    typedef T value_type;
    GenAllocator() = default;
    template <class U>
    GenAllocator(const GenAllocator<U>&) noexcept {}
    T* allocate(size_t n) {
        if (n > SIZE_MAX / sizeof(T))
            throw std::bad_alloc();
        return static_cast<T*>(GenMemory::Allocate(n * sizeof(T)));
    }
    void deallocate(T* p, size_t n) noexcept { GenMemory::Free(p, n * sizeof(T)); }
    template <class U>
    bool operator==(const GenAllocator<U>&) const noexcept {
        return true;
    }
    template <class U>
    bool operator!=(const GenAllocator<U>&) const noexcept {
        return false;
    }
};

template <class T>
using GenVector = std::vector<T, GenAllocator<T>>;

// A growable array of plain values for the working data of generation:
// what is added is not cleared first, and adding stays inline. Growing
// reallocates, which for a large array remaps its pages rather than
// copying them.
template <class T>
class WorkArray {
public:
    WorkArray() = default;
    WorkArray(const WorkArray&) = delete;
    WorkArray& operator=(const WorkArray&) = delete;
    ~WorkArray() { GenMemory::Free(m_data, m_capacity * sizeof(T)); }

    T* data() { return m_data; }
    const T* data() const { return m_data; }
    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    T& operator[](size_t i) { return m_data[i]; }
    const T& operator[](size_t i) const { return m_data[i]; }
    T& back() { return m_data[m_size - 1]; }
    const T& back() const { return m_data[m_size - 1]; }
    void clear() { m_size = 0; }
    // Drops what lies from n on.
    void shrink(size_t n) { m_size = n; }
    void pop_back() { --m_size; }
    void push_back(const T& v) {
        if (__builtin_expect(m_size == m_capacity, 0))
            Grow(1);
        m_data[m_size++] = v;
    }
    // Room for n more values, which count from now on.
    T* Extend(size_t n) {
        if (__builtin_expect(m_capacity - m_size < n, 0))
            Grow(n);
        T* p = m_data + m_size;
        m_size += n;
        return p;
    }
    // n values, all of them v, in place of what was there.
    void Assign(size_t n, const T& v) {
        m_size = 0;
        std::fill_n(Extend(n), n, v);
    }
    void reserve(size_t n) {
        if (n <= m_capacity)
            return;
        if (n > SIZE_MAX / sizeof(T))
            throw std::bad_alloc();
        m_data = static_cast<T*>(GenMemory::Reallocate(m_data, m_capacity * sizeof(T), n * sizeof(T)));
        m_capacity = n;
    }
    void swap(WorkArray& other) noexcept {
        std::swap(m_data, other.m_data);
        std::swap(m_size, other.m_size);
        std::swap(m_capacity, other.m_capacity);
    }
    // Gives all memory back.
    void Release() {
        GenMemory::Free(m_data, m_capacity * sizeof(T));
        m_data = nullptr;
        m_size = m_capacity = 0;
    }

private:
    static_assert(std::is_trivially_copyable<T>::value, "plain values only");
    // Room for n more values at least, and twice as many as there were:
    // out of line, so that the loops that add values keep their registers.
    __attribute__((noinline)) void Grow(size_t n) { reserve(std::max(m_size + n, 2 * m_capacity + 16)); }

    T* m_data = nullptr;
    size_t m_size = 0;
    size_t m_capacity = 0;
};
