/*
 * guards.h - owners: what is acquired belongs to an object that gives it back at its end, on every
 * path. They need nothing of the C++ run-time library. The owner of a trace record's pair, entry
 * and exit, is ztm::TraceScope in zttrc.h; declare it first, so that the cleanup comes before the
 * exit.
 */
#ifndef ZTM_GUARDS_H
#define ZTM_GUARDS_H

#include "ztsvc.h"

#include <pthread.h>
#include <unistd.h>

namespace ztm {

// Handle owns an object of a C library. `release` is the function that frees it; null is not passed
// to it:
//
//   Handle<EVP_KDF, EVP_KDF_free> function(EVP_KDF_fetch(...));
template <typename Object, auto release> class Handle {
public:
    Handle() = default;
    explicit Handle(Object *acquired) : object(acquired) {}
    Handle(Handle &&other) noexcept : object(other.take()) {}
    Handle &operator=(Handle &&other) noexcept {
        reset(other.take());
        return *this;
    }
    ~Handle() {
        reset();
    }

    [[nodiscard]] Object *get() const {
        return object;
    }
    explicit operator bool() const {
        return object != nullptr;
    }
    // Releases the object and owns another one.
    void reset(Object *acquired = nullptr) {
        if (object != nullptr && object != acquired)
            release(object);
        object = acquired;
    }
    // Hands the object over; the handle is empty.
    [[nodiscard]] Object *take() {
        Object *const taken = object;
        object = nullptr;
        return taken;
    }
    // The place for a function that stores the address of a new object through a pointer.
    [[nodiscard]] Object **receive() {
        reset();
        return &object;
    }

private:
    Object *object = nullptr;
};

inline void releaseMemory(void *memory) {
    (void)svcFreeMemFn(/* subpool= */ 0, SVC_COMPONENT_VEK, /* allocation= */ 0, memory);
}

// Memory owns memory of svcGetMemFn or a buffer of the PBE service, which is wiped and released.
template <typename Object> using Memory = Handle<Object, releaseMemory>;

// allocate lets `memory` own `length` cleared bytes. Result: of svcGetMemFn.
template <typename Object>
[[nodiscard]] uint32_t allocate(Memory<Object> *memory, size_t length, uint32_t allocation = 0) {
    void *acquired = nullptr;
    const uint32_t result = svcGetMemFn(/* subpool= */ 0, SVC_COMPONENT_VEK, allocation, length,
                                        /* options= */ 0, &acquired);
    memory->reset(static_cast<Object *>(acquired));
    return result;
}

// Descriptor owns an open file descriptor, or -1. What close says is not looked at: who must know
// whether bytes reached the file asks before.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int opened) : descriptor(opened) {}
    Descriptor(Descriptor &&other) noexcept : descriptor(other.take()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset(other.take());
        return *this;
    }
    ~Descriptor() {
        reset();
    }

    [[nodiscard]] int get() const {
        return descriptor;
    }
    explicit operator bool() const {
        return descriptor >= 0;
    }
    void reset(int opened = -1) {
        if (descriptor >= 0)
            (void)close(descriptor);
        descriptor = opened;
    }
    [[nodiscard]] int take() {
        const int taken = descriptor;
        descriptor = -1;
        return taken;
    }

private:
    int descriptor = -1;
};

// Lock holds a mutex.
class Lock {
public:
    explicit Lock(pthread_mutex_t &held) : mutex(held) {
        (void)pthread_mutex_lock(&mutex);
    }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
    ~Lock() {
        (void)pthread_mutex_unlock(&mutex);
    }

private:
    pthread_mutex_t &mutex;
};

// Wiping is a buffer or a record that wipes itself, as every copy of it does. `Wiping<char[64]>
// text;` is not initialised, `Wiping<char[64]> text{};` is cleared.
template <typename Value> struct Wiping {
    Value value;
    ~Wiping() {
        svcWipe(&value, sizeof value);
    }
};

} // namespace ztm

#endif
