/*
 * runvekcred - protects the credentials that stand in clear in keystore.conf.
 */
#include "runvekcred/replacement.h"
#include "runvekcred/runvekcred.h"
#include "trace_numbers.h"
#include "ztsvc.h"
#include "zttrc.h"
#include "ztutl.h"

#include <cstring>

#define TRC_SOURCE "cmd/vek/runvekcred"

constexpr char PATH_MARKER[] = "@@_ZT_INSTALLATION_PATH_@@";
constexpr size_t PATH_ROOM = 4096;

// An installation to another prefix writes that prefix behind the marker, in the finished program. The
// field has a name of its own outside this file, so that no compiler takes its text for a constant.
extern char ztInstallationPathField[sizeof PATH_MARKER - 1 + PATH_ROOM];
char ztInstallationPathField[sizeof PATH_MARKER - 1 + PATH_ROOM] =
    "@@_ZT_INSTALLATION_PATH_@@/opt/ztm";

// The version identification of the command, for `what` and `strings`; nothing calls it.
const char *runvekcredGetVersion();
const char *runvekcredGetVersion() {
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
    SvcMiniSubpool *context;
    CommandSettings settings;
    const char *keystorePath;
    char searchBuffer[SZTUC_PATH_CAPACITY];
    CipherSession session;
};

const char *installationPath() {
    return ztInstallationPathField + sizeof PATH_MARKER - 1;
}

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

int32_t startServices(SvcMiniSubpool *context) {
    const uint32_t result = svcInitializeEx(ENVIRONMENT, SERVICES, 0, 0, 0, 0, 0, 0, context);
    if (result == SVC_OK)
        return 0;
    // The text names the mini initialisation although the call is the extended one.
    (void)printf("svcMiniInitialize failed: %u\n", result);
    return initialisationReason(result);
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
    if (command->settings.keystorePath != nullptr) {
        command->keystorePath = command->settings.keystorePath;
        TRC_PARMS("Using keystore: '%s' from command line\n", command->keystorePath);
        return 0;
    }
    const uint32_t result =
        sztucGetConfigFilePath(command->searchBuffer, "ZTS_KEYSTORE_CONF", "keystore.conf");
    if (result != SZTU_OK) {
        TRC_PARMS("Cannot get config file path");
        return static_cast<int32_t>(result);
    }
    command->keystorePath = command->searchBuffer;
    TRC_PARMS("Using keystore: '%s' from VEK standard search\n", command->keystorePath);
    return 0;
}

int32_t checkReadable(const char *keystorePath) {
    char *text = nullptr;
    int32_t errorNumber = 0;
    const uint32_t result = sztucReadConfigFile(keystorePath, &text, &errorNumber);
    (void)svcFreeMemFn(0, SVC_COMPONENT_VEK, 0, text);
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

// From the first look at the file to its replacement no other run may replace it.
int32_t protectKeystore(Command *command) {
    const char *const path = command->keystorePath;
    const int directory = lockDirectory(path);
    int32_t reasonCode = checkReadable(path);
    if (reasonCode == 0)
        reasonCode = openCipherSession(command->settings, path, &command->session);
    if (reasonCode == 0)
        reasonCode = rewriteKeystore(path, command->settings.outputPath, directory,
                                     &command->session.record);
    unlockDirectory(directory);
    return reasonCode;
}

int32_t runCommand(Command *command, int argumentCount, char **arguments) {
    int32_t reasonCode = startServices(command->context);
    if (reasonCode != 0)
        return reasonCode;
    // The command shows its own messages; the library keeps quiet.
    sztUseLogErrorMessage = 0;

    reasonCode = readCommandLine(argumentCount, arguments, &command->settings);
    if (reasonCode == 0)
        reasonCode = chooseKeystore(command);
    if (reasonCode == 0)
        reasonCode = protectKeystore(command);
    return reasonCode;
}

int32_t terminate(Command *command, int32_t reasonCode) {
    closeCipherSession(&command->session);
    if (reasonCode == 0)
        showMessage(SVC_MSG_PROTECTED, svcMakeInserts(0, command->keystorePath, nullptr), __LINE__);
    utlMapRCTo8bit(&reasonCode);
    TRC_RETCODE(FUNCTION_COMMAND, reasonCode);
    (void)svcProgramTerm(0);
    return reasonCode;
}

} // namespace

int main(int argumentCount, char **arguments) {
    Command command = {};
    command.context = takeMessageContext();
    command.settings = DEFAULT_SETTINGS;

    // Without a usable installation nothing else can be relied on, not even the exit status table.
    if (svcCheckConsistency(installationPath()) != SVC_OK) {
        TRC_PARMS("Environment not configured correctly.");
        return REASON_NOT_CONSISTENT;
    }
    (void)svcProgramInit(argumentCount, arguments, 0, PROGRAM_KIND);
    TRC_ENTRY(FUNCTION_COMMAND);

    const int32_t reasonCode = runCommand(&command, argumentCount, arguments);
    return terminate(&command, reasonCode);
}
