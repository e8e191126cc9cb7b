// Runs a fuzz target over the files named on the command line, and over each of them cut off
// anywhere. It stands in for libFuzzer in the ordinary tests.
#include "fuzz_support.h"

#include <cstdio>
#include <unistd.h>

int main(int argumentCount, char **arguments) {
    static uint8_t content[65536];
    require(argumentCount > 1);
    (void)close(STDERR_FILENO); // the messages of the command
    for (int i = 1; i < argumentCount; ++i) {
        FILE *const file = fopen(arguments[i], "rb");
        require(file != nullptr);
        const size_t size = fread(content, 1, sizeof content, file);
        require(size < sizeof content && fclose(file) == 0);
        for (size_t length = 0; length <= size; ++length)
            (void)LLVMFuzzerTestOneInput(content, length);
    }
    return 0;
}
