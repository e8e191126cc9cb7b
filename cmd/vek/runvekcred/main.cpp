/*
 * runvekcred - protects the credentials that stand in clear in keystore.conf.
 */
#include "common/guards.h"
#include "runvekcred/key_source.h"
#include "runvekcred/message.h"
#include "runvekcred/new_file.h"
#include "runvekcred/options.h"
#include "runvekcred/reason.h"
#include "shared.h"
#include "shared/locked_directory.h"
#include "trace_numbers.h"
#include "ztsvc.h"
#include "zttrc.h"
#include "ztutl.h"
#include "ztvek.h"

#include <cstdio>

#define TRC_SOURCE "cmd/vek/runvekcred"

namespace runvekcred {

constexpr char PATH_MARKER[] = "@@_ZT_INSTALLATION_PATH_@@";
constexpr size_t PATH_ROOM = 4096;

// An installation to another prefix writes that prefix behind the marker, in the finished program.
// The field has a name of its own outside this file, so that no compiler takes its text for a
// constant.
extern char installationPathField[sizeof PATH_MARKER - 1 + PATH_ROOM];
char installationPathField[sizeof PATH_MARKER - 1 + PATH_ROOM] =
    "@@_ZT_INSTALLATION_PATH_@@/opt/ztm";

// The version identification of the command, for `what` and `strings`; nothing calls it.
const char *version();
const char *version() {
    return "@(#) cmd/vek/runvekcred " VEK_VERSION;
}

namespace {

constexpr char PROGRAM_NAME[] = "runvekcred";

// Arguments of the start-up services: the numbers that the platform knows this program by.
constexpr uint32_t PROGRAM_KIND = 116;
constexpr uint32_t ENVIRONMENT = 48;
constexpr uint32_t SERVICES = SVC_SERVICE_MEMORY | SVC_SERVICE_MESSAGES | SVC_SERVICE_TRACE;

// Results of the initialisation that have a reason code of their own.
constexpr uint32_t INIT_PASSED_THROUGH = 0x20008066;
constexpr uint32_t INIT_REASON_ENVIRONMENT = 0x20806301;

constexpr int32_t ERROR_TEXT_CAPACITY = 1024;

struct Command {
    SvcMiniSubpool *context = takeMessageContext();
    CommandSettings settings;
    const char *keystorePath = nullptr;
    char searchBuffer[SZTUC_PATH_CAPACITY] = "";
};

// The services of the process, from their start to their end.
class Program {
public:
    Program(int argumentCount, char **arguments) {
        (void)svcProgramInit(argumentCount, arguments, /* options= */ 0, PROGRAM_KIND);
    }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    ~Program() {
        (void)svcProgramTerm(/* options= */ 0);
    }
};

int32_t initialisationReason(uint32_t result) {
    if (result == SVC_NO_STORAGE)
        return REASON_NO_STORAGE;
    if (result == INIT_PASSED_THROUGH)
        return static_cast<int32_t>(result);
    const uint32_t recorded = thdProcess.initReason;
    if (recorded == INIT_REASON_ENVIRONMENT || recorded == SVC_THREAD_KEY_LOST)
        return static_cast<int32_t>(recorded);
    return REASON_INITIALISATION_FAILED;
}

int32_t showUsage() {
    showMessage(SVC_MSG_USAGE, svcMakeInserts(0, nullptr, nullptr), __LINE__);
    return REASON_USAGE;
}

int32_t readCommandLine(int argumentCount, char **arguments, CommandSettings *settings) {
    const size_t count = argumentCount > 1 ? static_cast<size_t>(argumentCount) - 1 : 0;
    const char *argumentAtFault = nullptr;
    switch (scanOptions({arguments + 1, count}, settings, &argumentAtFault)) {
    case ScanResult::usageError:
        showMessage(SVC_MSG_BAD_ARGUMENT, svcMakeInserts(0, argumentAtFault, PROGRAM_NAME),
                    __LINE__);
        return showUsage();
    case ScanResult::help:
        return showUsage();
    case ScanResult::done:
        break;
    }
    if (isKnownAlgorithm(settings->algorithm))
        return 0;
    // 0 is refused as well, although the text speaks of smaller values.
    TRC_PARMS("Supplied algorithm %d was smaller than 0 or larger than the latest %d",
              settings->algorithm, SVC_PBE_ALGORITHM_LATEST);
    return showUsage();
}

int32_t chooseKeystore(Command *command) {
    command->keystorePath = command->settings.keystorePath;
    if (command->keystorePath != nullptr) {
        TRC_PARMS("Using keystore: '%s' from command line\n", command->keystorePath);
        return 0;
    }
    const uint32_t result =
        sztucGetConfigFilePath(command->searchBuffer, vek::FILE_VARIABLE, vek::FILE_NAME);
    if (result != SZTU_OK) {
        TRC_PARMS("Cannot get config file path");
        return static_cast<int32_t>(result);
    }
    command->keystorePath = command->searchBuffer;
    TRC_PARMS("Using keystore: '%s' from VEK standard search\n", command->keystorePath);
    return 0;
}

int32_t checkReadable(const char *keystorePath) {
    ztm::Memory<char> text;
    int32_t errorNumber = 0;
    const uint32_t result = sztucReadConfigFile(keystorePath, text.receive(), &errorNumber);
    text.reset(); // it is not parsed; the rewriting reads the file line by line
    if (result == SZTU_OK)
        return 0;

    TRC_PARMS("Cannot read config file '%s'", keystorePath);
    showMessage(SVC_MSG_FILE_UNUSABLE, svcMakeInserts(errorNumber, keystorePath, nullptr),
                __LINE__);
    if (errorNumber != 0) {
        char errorText[ERROR_TEXT_CAPACITY];
        (void)svcStrerrorEx(errorNumber, errorText, sizeof errorText, /* options= */ 0,
                            /* style= */ 1);
        errorText[sizeof errorText - 1] = '\0';
        TRC_PARMS("errno '%d': %s", errorNumber, errorText);
    }
    return static_cast<int32_t>(result);
}

int32_t runCommand(Command *command, int argumentCount, char **arguments) {
    const uint32_t result =
        svcInitializeEx(ENVIRONMENT, SERVICES, 0, 0, 0, 0, 0, 0, command->context);
    if (result != SVC_OK) {
        // The text names the mini initialisation although the call is the extended one.
        (void)printf("svcMiniInitialize failed: %u\n", result);
        return initialisationReason(result);
    }
    // The command shows its own messages; the library keeps quiet.
    sztUseLogErrorMessage = 0;

    int32_t reasonCode = readCommandLine(argumentCount, arguments, &command->settings);
    if (reasonCode != 0)
        return reasonCode;
    reasonCode = chooseKeystore(command);
    if (reasonCode != 0)
        return reasonCode;
    // From the first look at the file to its replacement no other run may replace it.
    const replacement::LockedDirectory directory(command->keystorePath);
    reasonCode = checkReadable(command->keystorePath);
    if (reasonCode != 0)
        return reasonCode;
    const RunFiles files = {command->keystorePath, command->settings.outputPath, directory};
    CipherSession session;
    reasonCode = session.open(command->settings, files);
    if (reasonCode != 0)
        return reasonCode;
    return rewriteKeystore(files, session.get());
}

} // namespace

} // namespace runvekcred

using namespace runvekcred;

int main(int argumentCount, char **arguments) {
    Command command;
    // Without a usable installation nothing else can be relied on, not even the exit status table.
    const char *const installationPath = installationPathField + sizeof PATH_MARKER - 1;
    if (svcCheckConsistency(installationPath) != SVC_OK) {
        TRC_PARMS("Environment not configured correctly.");
        return REASON_NOT_CONSISTENT;
    }
    const Program program(argumentCount, arguments);
    ztm::TraceScope trace(vek::FUNCTION_COMMAND);
    int32_t reasonCode = runCommand(&command, argumentCount, arguments);
    if (reasonCode == 0)
        showMessage(SVC_MSG_PROTECTED, svcMakeInserts(0, command.keystorePath, nullptr), __LINE__);
    utlMapRCTo8bit(&reasonCode);
    return trace.returns(reasonCode);
}
