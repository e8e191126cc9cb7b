/*
 * startup.cpp - start-up and termination of a program. It stands above all services and knows them.
 */
#include "common/memory.h"
#include "pbe/libcrypto.h"
#include "trace/trace.h"
#include "ztsvc.h"
#include "zttrc.h"

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#define TRC_SOURCE "platform/program/startup.cpp"

namespace ztm {

namespace {

constexpr uint32_t KNOWN_SERVICES = SVC_SERVICE_MEMORY | SVC_SERVICE_MESSAGES | SVC_SERVICE_TRACE;

uint32_t startServices(uint32_t services, bool reservedAreZero, const SvcMiniSubpool *context) {
    if (context == nullptr || !reservedAreZero || (services & ~KNOWN_SERVICES) != 0)
        return SVC_BAD_ARGUMENTS;
    if (context->handle != svcIC_MINI_SUBPOOL.handle || context->word != svcIC_MINI_SUBPOOL.word)
        return SVC_BAD_ARGUMENTS;
    if ((services & SVC_SERVICE_TRACE) == 0)
        return SVC_OK;
    return startTrace();
}

} // namespace

} // namespace ztm

using namespace ztm;

uint32_t svcCheckConsistency(const char *installationPath) {
    if (installationPath == nullptr)
        return SVC_BAD_ARGUMENTS;
    if (installationPath[0] != '/')
        return SVC_NOT_CONSISTENT;
    struct stat status;
    if (stat(installationPath, &status) == 0 && !S_ISDIR(status.st_mode))
        return SVC_NOT_CONSISTENT;
    return isLoadedLibcryptoUsable() ? SVC_OK : SVC_NOT_CONSISTENT;
}

uint32_t svcProgramInit(int argumentCount, char **arguments, uint32_t options,
                        uint32_t programKind) {
    // A core of this process would hold keys and credentials. Neither call fails with these values.
    (void)prctl(PR_SET_DUMPABLE, 0);
    const struct rlimit noCore = {0, 0};
    (void)setrlimit(RLIMIT_CORE, &noCore);
    // A message must not land in a file that took the place of a closed standard stream.
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (fcntl(stream, F_GETFD) < 0)
            (void)open("/dev/null", O_RDWR);
    // A reader of messages that went away and a limit on the size of files are errors of a call,
    // not ends of the process: it has files to put in order and secrets to wipe.
    (void)signal(SIGPIPE, SIG_IGN);
    (void)signal(SIGXFSZ, SIG_IGN);
    claimProcess();
    TRC_PARMS("Program %s started, %d arguments, options %u, kind %u",
              argumentCount > 0 ? arguments[0] : "", argumentCount, options, programKind);
    return SVC_OK;
}

uint32_t svcInitializeEx(uint32_t environment, uint32_t services, uint64_t reserved1,
                         uint64_t reserved2, uint64_t reserved3, uint64_t reserved4,
                         uint64_t reserved5, uint64_t reserved6, SvcMiniSubpool *context) {
    const bool reservedAreZero =
        (reserved1 | reserved2 | reserved3 | reserved4 | reserved5 | reserved6) == 0;
    const uint32_t result = startServices(services, reservedAreZero, context);
    if (result != SVC_OK)
        thdProcess.initReason = result;
    TRC_PARMS("Services 0x%x of environment %u started: 0x%x", services, environment, result);
    return result;
}

uint32_t svcProgramTerm(uint32_t /*options*/) {
    releaseListed();
    dropLibcrypto();
    stopTrace();
    return SVC_OK;
}
