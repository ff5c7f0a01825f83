// The calls that the platform layer makes, and what each may fail with. Left out are those that
// cannot fail as they are used: of locks, of the signal mask, of clocks, and what asks for numbers.
#include "FailingCalls.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <span>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace Tavrik::Ossira::tTest
{

using enum Effect;

// As it is called, though it takes what comes.
using Open = int(const char*, int);
using Syscall = long(long, long, long, long, long, long, long); // of a futex
using RegisterAtFork = int(void (*)(), void (*)(), void (*)(), void*);

// The compiler says that a function's attributes do not come along.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-attributes"

// clang-format off
const std::vector<FailableCall>& FailableCalls()
{
    static const std::vector<FailableCall> calls = {
        CALL(malloc, 0, {ENOMEM, NoMemory}),
        CALL(opendir, 0, {EINTR, Unnoticed}, {EACCES, Lacking}, {EMFILE, Lacking}, {ENOMEM,
            NoMemory}),
        CALL(readdir, 0, {EINTR, Unnoticed}, {EIO, Lacking}, {ENOMEM, NoMemory}),
        CALL_DONE(closedir, EINTR),
        CALL(getcwd, 0, {ENOENT, Unnoticed}, {ENOMEM, NoMemory}),
        CALL(readlink, -1, {EACCES, Refused}, {ENOMEM, NoMemory}),
        CALL(access, -1, {EACCES, Refused}, {EIO, Lacking}, {ENOMEM, NoMemory}),
        CALL_AS(open, -1, Open, {EINTR, Unnoticed}, {EACCES, Refused}, {EIO, Lacking}, {EMFILE,
            Lacking}, {ENOMEM, NoMemory}),
        CALL_AS(fstat, -1, int(int, struct stat*), {EIO, Lacking}, {ENOMEM, NoMemory}),
        CALL_AS(stat, -1, int(const char*, struct stat*), {EACCES, Unnoticed}),
        CALL(pread, -1, {EINTR, Unnoticed}, {Short, Unnoticed}, {EIO, Lacking}, {ENOMEM, NoMemory}),
        CALL_DONE(close, EINTR),
        CALL(dlopen, 0, {EACCES, Refused}, {EIO, Lacking}, {EMFILE, Lacking}, {ENOMEM, NoMemory}),
        CALL(dlsym, 0, {ENOENT, Refused}),
        CALL_DONE(dlclose, EINVAL),
        CALL_AS(__register_atfork, ItsError, RegisterAtFork, {ENOMEM, NoMemory}),
        CALL(pthread_create, ItsError, {EAGAIN, Lacking}, {ENOMEM, NoMemory}),
        CALL(sched_getaffinity, -1, {EINVAL, Unnoticed}),
        CALL_AS(syscall, -1, Syscall, {EINTR, Unnoticed}, {EAGAIN, Unnoticed}),
        CALL(getauxval, 0, {ENOENT, Unnoticed}),
        CALL(poll, -1, {EINTR, Unnoticed}, {ENOMEM, Lacking}),
        CALL(write, -1, {EINTR, Unnoticed}, {EAGAIN, Unnoticed}, {Short, Unnoticed}, {EIO, Lacking},
            {ENOSPC, Lacking}),
        CALL(send, -1, {EINTR, Unnoticed}, {EAGAIN, Unnoticed}, {Short, Unnoticed}, {EPIPE,
            Lacking}),
        CALL(pwritev2, -1, {EINTR, Unnoticed}, {EAGAIN, Unnoticed}, {EOPNOTSUPP, Unnoticed}, {EPIPE,
            Lacking}),
    };
    return calls;
}
// clang-format on

#pragma GCC diagnostic pop

int PlatformError()
{
    return errno;
}

void SetPlatformError(int error)
{
    errno = error;
}

// The loader has relocated the table's addresses, and bound every entry. What it answers for the
// program is its own record of it.
void ReplaceImports()
{
    const auto* const program = static_cast<const link_map*>(dlopen(nullptr, RTLD_LAZY));
    const auto find = [program](std::int64_t tag) -> std::uintptr_t
    {
        const Elf64_Dyn* entry = program->l_ld;
        while (entry->d_tag != tag && entry->d_tag != DT_NULL)
            ++entry;
        return entry->d_un.d_ptr;
    };
    const auto* const symbols = reinterpret_cast<const Elf64_Sym*>(find(DT_SYMTAB));
    const auto* const names = reinterpret_cast<const char*>(find(DT_STRTAB));
    for (const auto& [begin, size] :
         {std::pair(find(DT_RELA), find(DT_RELASZ)), std::pair(find(DT_JMPREL), find(DT_PLTRELSZ))})
    {
        const auto* const relocations = reinterpret_cast<const Elf64_Rela*>(begin);
        for (const Elf64_Rela& each : std::span(relocations, size / sizeof *relocations))
        {
            const char* const name = names + symbols[ELF64_R_SYM(each.r_info)].st_name;
            for (const FailableCall& call : FailableCalls())
            {
                const auto type = ELF64_R_TYPE(each.r_info);
                if ((type != R_X86_64_GLOB_DAT && type != R_X86_64_JUMP_SLOT) ||
                    call.Real == nullptr || std::strcmp(name, call.Name) != 0)
                    continue;
                auto* const entry = reinterpret_cast<void**>(program->l_addr + each.r_offset);
                const auto page = reinterpret_cast<std::uintptr_t>(entry) & ~std::uintptr_t{4095};
                if (mprotect(reinterpret_cast<void*>(page), 4096, PROT_READ | PROT_WRITE) != 0)
                    std::abort();
                *call.Real = *entry;
                *entry = call.Instead;
            }
        }
    }
}

} // namespace Tavrik::Ossira::tTest
