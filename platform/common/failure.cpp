/*
 * failure.cpp - failure records. A record must be possible when memory is exhausted, so everything
 * here is static.
 */
#include "common/guards.h"
#include "ztsvc.h"
#include "zttrc.h"

#include <pthread.h>

namespace ztm {

namespace {

struct SavedLocation {
    const char *source;
    int32_t line;
};

// The model is named because the general one would need the dynamic loader as a library.
thread_local SavedLocation savedLocation __attribute__((tls_model("initial-exec"))) = {"", 0};

pthread_mutex_t recordMutex = PTHREAD_MUTEX_INITIALIZER;
SvcFailureRecord latestRecord = {0, 0, 0, 0, "", 0};

// Notes a record. Result: how many there are.
uint32_t keepRecord(uint32_t component, uint32_t failure, uint32_t probe,
                    const SavedLocation &location) {
    const Lock lock(recordMutex);
    latestRecord = {latestRecord.count + 1, component,    failure, probe,
                    location.source,        location.line};
    return latestRecord.count;
}

} // namespace

} // namespace ztm

using namespace ztm;

void svcSaveFileContextSccsId(const char *source, int32_t line) {
    savedLocation = {source, line};
}

void svcRecordFailure(uint32_t component, uint32_t failure, uint32_t probe,
                      const SvcMessageInserts *inserts) {
    const SavedLocation location = savedLocation;
    savedLocation = {"", 0};
    const uint32_t count = keepRecord(component, failure, probe, location);
    if (!trcActive(TRC_PARAMETERS))
        return;
    trc_parms(location.source, location.line,
              "Failure record %u: numbers %u 0x%x, component %u, insert %lld", count, failure,
              probe, component,
              inserts == nullptr ? 0LL : static_cast<long long>(inserts->numeric1));
}

void svcGetFailureRecord(SvcFailureRecord *record) {
    const Lock lock(recordMutex);
    *record = latestRecord;
}
