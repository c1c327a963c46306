// What the system does seldom, for programs that preload this: AT_FSYNC is a command that another
// program carries out while a file is flushed, MOST_THREADS how many threads there may be. Whoever
// closes a file twice, which can hit another thread's file, is stopped.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdlib.h>

int fsync(int descriptor) {
    int (*real)(int) = (int (*)(int))dlsym(RTLD_NEXT, "fsync");
    const char* command = getenv("AT_FSYNC");
    return command && system(command) != 0 ? -1 : real(descriptor);
}

int close(int descriptor) {
    int (*real)(int) = (int (*)(int))dlsym(RTLD_NEXT, "close");
    const int result = real(descriptor);
    if (result != 0 && errno == EBADF) {
        abort();
    }
    return result;
}

typedef void* thread_work(void*);

int pthread_create(pthread_t* thread, const pthread_attr_t* how, thread_work* work, void* data) {
    static atomic_int started;
    int (*real)(pthread_t*, const pthread_attr_t*, thread_work*, void*) =
        (int (*)(pthread_t*, const pthread_attr_t*, thread_work*, void*))dlsym(RTLD_NEXT,
                                                                               "pthread_create");
    const char* most = getenv("MOST_THREADS");
    return most && started++ >= atoi(most) ? EAGAIN : real(thread, how, work, data);
}
