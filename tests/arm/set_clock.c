/*
 * Sets the clock of an emulated machine: set_clock SECONDS_SINCE_1970. The tools of a 32-bit Debian
 * cannot name a time past January 2038.
 */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

int main(int argc, char **argv)
{
    if (argc != 2) {
        return 2;
    }
    const struct timespec time = {.tv_sec = strtoll(argv[1], NULL, 10)};
    if (clock_settime(CLOCK_REALTIME, &time) != 0) {
        perror("set_clock");
        return 1;
    }
    return 0;
}
