/* Loaded ahead of a program: refuses the creation of one thread, the one whose number, from 1, is
 * in the environment variable REFUSED_THREAD. */
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>

using CREATE_T = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);

static std::atomic<long> threads; // asked for so far

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): glibc's are reserved
extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                              void *(*body)(void *), void *argument)
{
    const char *refused = getenv("REFUSED_THREAD");
    if (refused != nullptr && ++threads == strtol(refused, nullptr, 10)) return EAGAIN;
    const auto create = reinterpret_cast<CREATE_T>(dlsym(RTLD_NEXT, "pthread_create"));
    return create(thread, attributes, body, argument);
}
