/*
 * A buffer with a page that faults right behind its last byte, or right before its first: what is written beside it
 * ends the test program.
 */
#ifndef TESTS_SUPPORT_GUARDED_BUFFER_H
#define TESTS_SUPPORT_GUARDED_BUFFER_H

#include <windows.h>

#include <string.h>

#include <stdexcept>
#include <vector>

class GuardedBuffer {
public:
    enum class Guard { Behind, Before };
    static constexpr BYTE Fill = 0xA5;  // what the buffer holds at first

    explicit GuardedBuffer(size_t size, Guard guard = Guard::Behind) : m_size(size)
    {
        const size_t page = 4096;
        const size_t usable = (size + page - 1) / page * page;
        DWORD        old = 0;
        m_pages =
            static_cast<BYTE*>(VirtualAlloc(nullptr, usable + 2 * page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        if (m_pages == nullptr) {
            throw std::bad_alloc();
        }
        m_data = m_pages + page + (guard == Guard::Behind ? usable - size : 0);
        memset(m_data, Fill, size);
        if (!VirtualProtect(m_pages, page, PAGE_NOACCESS, &old) ||
            !VirtualProtect(m_pages + page + usable, page, PAGE_NOACCESS, &old)) {
            throw std::runtime_error("no guard pages");
        }
    }
    ~GuardedBuffer()
    {
        VirtualFree(m_pages, 0, MEM_RELEASE);
    }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    BYTE* Data() const
    {
        return m_data;
    }
    size_t Size() const
    {
        return m_size;
    }
    std::vector<BYTE> Bytes() const
    {
        return std::vector<BYTE>(m_data, m_data + m_size);
    }

private:
    size_t m_size;
    BYTE*  m_pages;
    BYTE*  m_data;
};

#endif
