/*
 * Logs what a test asks for.
 *
 *   log_child IDENTITY old LEVEL MESSAGE [DOMAIN]     through g_log()
 *   log_child IDENTITY structured LEVEL MESSAGE [DOMAIN]
 *   log_child IDENTITY bytes LEVEL MESSAGE LENGTH     structured, the first LENGTH bytes, each "@"
 *                                                     of them as a NUL
 *   log_child IDENTITY threads LEVEL COUNT            COUNT messages on each of 4 threads, both
 * ways log_child IDENTITY long LEVEL LENGTH              one message of LENGTH times "x" log_child
 * IDENTITY twice LEVEL MESSAGE            after a second nq_log_syslog("other") log_child IDENTITY
 * errno LEVEL MESSAGE            exit status 0 if errno stays as it was
 *
 * "-" as IDENTITY stands for none. LEVEL is a decimal number, as GLib's levels and flags have it.
 */
#include <norq/log.h>

#include <errno.h>
#include <glib.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

enum { THREADS = 4 };

struct request {
    GLogLevelFlags level;
    const char *argument;
    const char *extra;
    long number; /* of the thread */
};

static void log_old(const struct request *request)
{
    g_log(request->extra, request->level, "%s", request->argument);
}

static void log_structured(const struct request *request)
{
    GLogField fields[] = {
        {"CODE_FILE", "log_child.c", -1},
        {"MESSAGE", request->argument, -1},
        {"GLIB_DOMAIN", request->extra, -1},
    };
    const gsize count = request->extra != NULL ? 3 : 2;
    g_log_structured_array(request->level, fields, count);
}

static void log_bytes(const struct request *request)
{
    const gssize length = atoi(request->extra);
    char *bytes = strdup(request->argument);
    for (char *at = bytes; *at != '\0'; ++at) {
        *at = *at == '@' ? '\0' : *at;
    }
    const GLogField field = {"MESSAGE", bytes, length};
    g_log_structured_array(request->level, &field, 1);
    free(bytes);
}

static void *run_thread(void *data)
{
    const struct request *request = data;
    const int count = atoi(request->argument);
    for (int i = 0; i < count; ++i) {
        char *text = g_strdup_printf("thread %ld message %d", request->number, i);
        const struct request one = {request->level, text, NULL, 0};
        if (i % 2 == 0) {
            log_old(&one);
        } else {
            log_structured(&one);
        }
        g_free(text);
    }
    return NULL;
}

static void log_threads(const struct request *request)
{
    pthread_t threads[THREADS];
    struct request requests[THREADS];
    for (long i = 0; i < THREADS; ++i) {
        requests[i] = *request;
        requests[i].number = i;
        pthread_create(&threads[i], NULL, run_thread, &requests[i]);
    }
    for (int i = 0; i < THREADS; ++i) {
        pthread_join(threads[i], NULL);
    }
}

static void log_long(const struct request *request)
{
    const gsize length = (gsize)atol(request->argument);
    char *text = g_malloc(length + 1);
    memset(text, 'x', length);
    text[length] = '\0';
    const struct request one = {request->level, text, NULL, 0};
    log_old(&one);
    g_free(text);
}

static int keeps_errno(const struct request *request)
{
    errno = EXDEV;
    log_structured(request);
    return errno == EXDEV ? 0 : 1;
}

int main(int argc, char **argv)
{
    if (argc < 5) {
        return 2;
    }
    const char *way = argv[2];
    const struct request request = {(GLogLevelFlags)atoi(argv[3]), argv[4],
                                    argc > 5 ? argv[5] : NULL, 0};
    nq_log_syslog(strcmp(argv[1], "-") == 0 ? NULL : argv[1]);
    if (strcmp(way, "old") == 0) {
        log_old(&request);
    } else if (strcmp(way, "structured") == 0) {
        log_structured(&request);
    } else if (strcmp(way, "bytes") == 0) {
        log_bytes(&request);
    } else if (strcmp(way, "threads") == 0) {
        log_threads(&request);
    } else if (strcmp(way, "long") == 0) {
        log_long(&request);
    } else if (strcmp(way, "twice") == 0) {
        nq_log_syslog("other");
        log_old(&request);
    } else if (strcmp(way, "errno") == 0) {
        return keeps_errno(&request);
    } else {
        return 2;
    }
    return 0;
}
