/* peak_memory.c - runs a command and prints the most memory that it held, in KiB. */
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argumentCount, char **arguments) {
    if (argumentCount < 2)
        return 2;
    const pid_t child = fork();
    if (child == 0) {
        (void)execvp(arguments[1], arguments + 1);
        _exit(127);
    }
    int status;
    struct rusage usage;
    if (child < 0 || wait4(child, &status, 0, &usage) < 0 || status != 0)
        return 1;
    (void)printf("%ld\n", usage.ru_maxrss);
    return 0;
}
