/*
 * secret.h - the one type for a text that is a secret: an initial key's path is none, a password
 * is.
 *
 * Each text has memory of its own, which is kept out of core dumps, locked where the limit allows,
 * and wiped before it is given back. A secret is moved, never copied: Secret(other.view()) says so
 * where it must be.
 */
#ifndef VEKCTL_SECRET_H
#define VEKCTL_SECRET_H

#include "ztsvc.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>
#include <sys/mman.h>
#include <utility>

namespace vekctl {

class Secret {
public:
    Secret() = default;
    explicit Secret(std::string_view text) {
        append(text);
    }
    Secret(Secret &&other) noexcept {
        swap(other);
    }
    Secret &operator=(Secret &&other) noexcept {
        Secret taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~Secret() {
        release();
    }

    [[nodiscard]] const char *data() const {
        return memory;
    }
    [[nodiscard]] char *data() {
        return memory;
    }
    [[nodiscard]] size_t size() const {
        return length;
    }
    [[nodiscard]] bool empty() const {
        return length == 0;
    }
    [[nodiscard]] std::string_view view() const {
        return {memory, length};
    }

    void reserve(size_t wanted) {
        if (wanted <= capacity)
            return;
        constexpr size_t PAGE = 4096;
        constexpr size_t STEP = 256 * PAGE;
        wanted = std::max(wanted, capacity + std::min(capacity, STEP));
        const size_t rounded = (wanted + PAGE - 1) / PAGE * PAGE;
        if (memory == nullptr)
            acquire(rounded);
        else
            grow(rounded);
    }
    // `text` must not lie in this secret.
    void append(std::string_view text) {
        if (text.empty())
            return;
        reserve(length + text.size());
        memcpy(memory + length, text.data(), text.size());
        length += text.size();
    }
    // New bytes are zero; those that go are wiped.
    void resize(size_t wanted) {
        if (wanted < length)
            svcWipe(memory + wanted, length - wanted);
        reserve(wanted);
        length = wanted;
    }
    void clear() {
        resize(0);
    }

    // Takes as long whether they differ early, late, or not at all.
    [[nodiscard]] bool equals(std::string_view other) const {
        if (other.size() != length)
            return false;
        unsigned difference = 0;
        for (size_t i = 0; i < length; ++i)
            difference |= static_cast<unsigned char>(memory[i] ^ other[i]);
        return difference == 0;
    }

    void swap(Secret &other) noexcept {
        std::swap(memory, other.memory);
        std::swap(length, other.length);
        std::swap(capacity, other.capacity);
    }

private:
    // Pages of its own: locks do not nest, so a page with two secrets would be unlocked with the
    // first.
    void acquire(size_t wholePages) {
        void *const pages = mmap(nullptr, wholePages, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS, /* fd= */ -1, /* offset= */ 0);
        if (pages == MAP_FAILED)
            throw std::bad_alloc();
        (void)madvise(pages, wholePages, MADV_DONTDUMP);
        (void)mlock(pages, wholePages); // not having it is no error
        memory = static_cast<char *>(pages);
        capacity = wholePages;
    }
    // The pages move as they are, so that there is no second copy.
    void grow(size_t wholePages) {
        void *pages = mremap(memory, capacity, wholePages, MREMAP_MAYMOVE);
        if (pages == MAP_FAILED) { // more than may be locked
            (void)munlock(memory, capacity);
            pages = mremap(memory, capacity, wholePages, MREMAP_MAYMOVE);
        }
        if (pages == MAP_FAILED)
            throw std::bad_alloc();
        memory = static_cast<char *>(pages);
        capacity = wholePages;
    }
    void release() {
        if (memory == nullptr)
            return;
        svcWipe(memory, length);
        (void)munmap(memory, capacity); // unlocks as well
    }

    char *memory = nullptr;
    size_t length = 0;
    size_t capacity = 0;
};

} // namespace vekctl

#endif
