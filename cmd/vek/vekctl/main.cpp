/*
 * vekctl - the administrator's program for keystore.conf.
 */
#include "vekctl/command_line.h"
#include "vekctl/report.h"

#include "ztvek.h"

#include <cstdio>
#include <exception>

namespace {

// The number that the platform knows this program by.
constexpr uint32_t PROGRAM_KIND = 117;

} // namespace

int main(int argumentCount, char **arguments) {
    (void)svcProgramInit(argumentCount, arguments, /* options= */ 0, PROGRAM_KIND);
    // The program says itself what there is to say.
    sztUseLogErrorMessage = 0;
    int status = vekctl::STATUS_FINDINGS;
    try {
        status = vekctl::runCommandLine(argumentCount, arguments);
    } catch (const std::exception &problem) {
        (void)fprintf(stderr, "vekctl: %s\n", vekctl::shown(problem.what()).c_str());
    }
    (void)svcProgramTerm(/* options= */ 0);
    return status;
}
