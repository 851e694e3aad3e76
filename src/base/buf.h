#pragma once
// CBuf: an owned, growable block of memory of elements of T (bytes by
// default). Contents are not initialised. A failed allocation throws
// "Failed to allocate %1 bytes.", a failed growth "Cannot reallocate memory
// buffer. Requested size of the buffer is %1 elements, previous - %2.".

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/exc.h"
#include "base/format.h"

template <class T = uint8_t>
class CBuf {
public:
    CBuf() = default;
    explicit CBuf(size_t count) { Allocate(count); }
    ~CBuf() { std::free(m_Data); }
    CBuf(const CBuf&) = delete;
    CBuf& operator=(const CBuf&) = delete;
    CBuf(CBuf&& other) noexcept
        : m_Data(std::exchange(other.m_Data, nullptr)), m_Count(std::exchange(other.m_Count, 0)) {}
    CBuf& operator=(CBuf&& other) noexcept {
        std::swap(m_Data, other.m_Data);
        std::swap(m_Count, other.m_Count);
        return *this;
    }

    // Replaces the block by a fresh one of count elements.
    void Allocate(size_t count) {
        std::free(m_Data);
        m_Data = nullptr;
        m_Count = 0;
        if (count == 0) return;
        // A count read from disk may be absurd: its byte size must not wrap.
        if (count > SIZE_MAX / sizeof(T))
            throw CExc(u"Failed to allocate %1 bytes.", util::ToStrU64(count) + u" * " +
                                                            util::ToStrU64(sizeof(T)));
        void* p = std::malloc(count * sizeof(T));
        if (!p) throw CExc(u"Failed to allocate %1 bytes.", util::ToStrU64(count * sizeof(T)));
        m_Data = static_cast<T*>(p);
        m_Count = count;
    }

    // Grows or shrinks to count elements, keeping the common prefix.
    void Resize(size_t count) {
        if (count == m_Count) return;
        if (count == 0) {
            Allocate(0);
            return;
        }
        void* p = count > SIZE_MAX / sizeof(T) ? nullptr : std::realloc(m_Data, count * sizeof(T));
        if (!p)
            throw CExc(u"Cannot reallocate memory buffer. Requested size of the buffer is %1 "
                       u"elements, previous - %2.",
                       util::ToStrU64(count), util::ToStrU64(m_Count));
        m_Data = static_cast<T*>(p);
        m_Count = count;
    }

    // Grows to at least count elements; never shrinks.
    void Reserve(size_t count) {
        if (count > m_Count) Resize(count);
    }

    void Zero() {
        if (m_Data) std::memset(m_Data, 0, m_Count * sizeof(T));
    }

    T* Get() { return m_Data; }
    const T* Get() const { return m_Data; }
    size_t Count() const { return m_Count; }
    size_t SizeInBytes() const { return m_Count * sizeof(T); }
    T& operator[](size_t i) { return m_Data[i]; }
    const T& operator[](size_t i) const { return m_Data[i]; }

private:
    T* m_Data = nullptr;
    size_t m_Count = 0;
};
