/*
 * failure.cpp - failure records. A record must be possible when memory is exhausted, so everything
 * here is static.
 */
#include "ztsvc.h"
#include "zttrc.h"

#include <pthread.h>

namespace {

struct SavedLocation {
    const char *source;
    int32_t line;
};

// The model is named because the general one would need the dynamic loader as a library.
thread_local SavedLocation savedLocation __attribute__((tls_model("initial-exec"))) = {"", 0};

pthread_mutex_t recordMutex = PTHREAD_MUTEX_INITIALIZER;
SvcFailureRecord latestRecord = {0, 0, 0, 0, "", 0};

} // namespace

void svcSaveFileContextSccsId(const char *source, int32_t line) {
    savedLocation = {source, line};
}

void svcRecordFailure(uint32_t component, uint32_t failure, uint32_t probe,
                      const SvcMessageInserts *inserts) {
    const SavedLocation location = savedLocation;
    savedLocation = {"", 0};

    (void)pthread_mutex_lock(&recordMutex);
    const uint32_t count = latestRecord.count + 1;
    latestRecord = {count, component, failure, probe, location.source, location.line};
    (void)pthread_mutex_unlock(&recordMutex);

    if (!trcActive(TRC_PARAMETERS))
        return;
    trc_parms(location.source, location.line,
              "Failure record %u: numbers %u 0x%x, component %u, insert %lld", count, failure,
              probe, component,
              inserts == nullptr ? 0LL : static_cast<long long>(inserts->numeric1));
}

void svcGetFailureRecord(SvcFailureRecord *record) {
    (void)pthread_mutex_lock(&recordMutex);
    *record = latestRecord;
    (void)pthread_mutex_unlock(&recordMutex);
}
