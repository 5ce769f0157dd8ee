// Preloaded into programs that run under qemu-user, never on a board.
//
// Qt asks the kernel whether it can wait for a process through a descriptor.
// qemu 7.2 answers the question wrongly and then refuses to make such a
// descriptor, so that every QProcess would hang. Answered as by a kernel that
// cannot do it, Qt waits for its processes in the traditional way.
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <sys/syscall.h>

namespace
{

const long processDescriptor = 3; // P_PIDFD

typedef long (*SystemCall)(long, ...);

// The programs that the emulated one starts are this machine's own.
__attribute__((constructor)) void keepFromChildren()
{
    unsetenv("LD_PRELOAD");
}

} // namespace

extern "C" long syscall(long number, ...) noexcept
{
    va_list rest;
    va_start(rest, number);
    long argument[6];
    for (long &value : argument)
        value = va_arg(rest, long);
    va_end(rest);

    if (number == SYS_waitid && argument[0] == processDescriptor) {
        errno = EINVAL;
        return -1;
    }
    static const SystemCall real = reinterpret_cast<SystemCall>(dlsym(RTLD_NEXT, "syscall"));
    return real(number, argument[0], argument[1], argument[2], argument[3], argument[4],
                argument[5]);
}
