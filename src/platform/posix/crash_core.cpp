// The ELF core writer. See crash_core.h for the contract and
// docs/crash-dumps.md for what goes into the file.
//
// File layout, in this order:
//
//   Elf64_Ehdr                      e_type ET_CORE, e_phnum = 1 + mappings
//   Elf64_Phdr PT_NOTE              the notes below
//   Elf64_Phdr PT_LOAD x mappings   one per line of /proc/<pid>/maps;
//                                   p_filesz is 0 for memory left out
//   notes                           crashing thread: NT_PRSTATUS, NT_PRPSINFO,
//                                   NT_SIGINFO, NT_AUXV, NT_FILE, NT_PRFPREG;
//                                   every other thread: NT_PRSTATUS,
//                                   NT_PRFPREG
//   (zeros up to a page boundary)
//   memory of each kept mapping, in the order of the program headers
//
// Memory is read through /proc/<pid>/mem while every thread is stopped by
// ptrace; a page that can't be read is written as zeros.

#include "platform/posix/crash_core.h"

#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/procfs.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "platform/crash.h"

namespace platform::posix {

namespace {

constexpr size_t kMaxThreads = 1024;
constexpr size_t kMaxMappings = 65000;          // e_phnum must stay below 0xFFFF
constexpr size_t kMapsTextLimit = 16u << 20;    // /proc/<pid>/maps, at most
constexpr size_t kNotesLimit = 8u << 20;
constexpr size_t kCopyChunk = 1u << 20;
constexpr uint64_t kNormalMappingLimit = 64ull << 20;  // a bigger one is left out
constexpr uint64_t kFullMappingLimit = 4ull << 30;

#if defined(__x86_64__)
constexpr uint16_t kMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr uint16_t kMachine = EM_AARCH64;
#else
#error "crash_core: no ELF machine for this architecture"
#endif

// Fixed memory for one dump, taken from one anonymous mapping.
class CArena {
public:
    explicit CArena(size_t size) : m_Size(size) {
        void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        m_Base = p == MAP_FAILED ? nullptr : static_cast<char*>(p);
    }
    ~CArena() {
        if (m_Base) munmap(m_Base, m_Size);
    }
    CArena(const CArena&) = delete;
    CArena& operator=(const CArena&) = delete;
    bool IsValid() const { return m_Base != nullptr; }
    // Zeroed memory, 16-byte aligned; null when the arena is used up.
    void* Take(size_t size) {
        size_t start = (m_Used + 15) & ~size_t(15);
        if (!m_Base || start > m_Size || size > m_Size - start) return nullptr;
        m_Used = start + size;
        return m_Base + start;  // fresh anonymous memory is zero
    }

private:
    char* m_Base = nullptr;
    size_t m_Size;
    size_t m_Used = 0;
};

struct TThread {
    pid_t tid;
    bool attached;
    int pendingSignal;  // a signal met while stopping it, given back at detach
    bool haveRegs;
    bool haveFpRegs;
    elf_gregset_t regs;
    elf_fpregset_t fpRegs;
};

struct TMapping {
    uint64_t start, end, offset, inode;
    uint32_t flags;        // PF_R | PF_W | PF_X
    const char* name;      // inside the maps text; not terminated
    size_t nameLength;
    uint64_t dataSize;     // bytes of memory written to the file
    uint64_t fileOffset;   // where they go
};

bool NameIs(const TMapping& m, const char* name) {
    size_t n = strlen(name);
    return m.nameLength == n && memcmp(m.name, name, n) == 0;
}

int OpenProcFile(pid_t pid, const char* leaf) {
    char path[64];
    CSafeText text(path, sizeof(path) - 1);
    text.Str("/proc/").Dec(static_cast<uint64_t>(pid)).Char('/').Str(leaf);
    path[text.Length()] = 0;
    int fd;
    do {
        fd = open(path, O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Reads the whole file into `buffer`, up to `size`; -1 on failure.
ssize_t ReadWhole(int fd, char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        ssize_t n = read(fd, buffer + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

ssize_t ReadProcFile(pid_t pid, const char* leaf, char* buffer, size_t size) {
    int fd = OpenProcFile(pid, leaf);
    if (fd < 0) return -1;
    ssize_t n = ReadWhole(fd, buffer, size);
    close(fd);
    return n;
}

// Reads target memory; false unless all of it was read.
bool ReadTarget(int memFd, uint64_t address, void* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        ssize_t n = pread(memFd, static_cast<char*>(buffer) + done, size - done,
                          static_cast<off_t>(address + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// The threads of `pid`, stopped. Threads that start while we attach are
// caught by listing again until a pass finds nothing new.
int AttachThreads(pid_t pid, TThread* threads, size_t& count) {
    count = 0;
    for (int pass = 0; pass < 16; ++pass) {
        int dirFd = OpenProcFile(pid, "task");
        if (dirFd < 0) return errno;
        bool found = false;
        alignas(8) char entries[4096];
        while (true) {
            long n = syscall(SYS_getdents64, dirFd, entries, sizeof(entries));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            for (long pos = 0; pos < n;) {
                auto* entry = reinterpret_cast<struct dirent64*>(entries + pos);
                pos += entry->d_reclen;
                pid_t tid = 0;
                const char* p = entry->d_name;
                if (*p < '0' || *p > '9') continue;
                for (; *p >= '0' && *p <= '9'; ++p) tid = tid * 10 + (*p - '0');
                bool known = false;
                for (size_t i = 0; i < count && !known; ++i) known = threads[i].tid == tid;
                if (known || count == kMaxThreads) continue;
                TThread& t = threads[count];
                memset(&t, 0, sizeof(t));
                t.tid = tid;
                if (ptrace(PTRACE_SEIZE, tid, nullptr, nullptr) != 0) {
                    if (errno == ESRCH) continue;  // it ended meanwhile
                    int err = errno;
                    close(dirFd);
                    return err;
                }
                t.attached = true;
                ++count;
                found = true;
                if (ptrace(PTRACE_INTERRUPT, tid, nullptr, nullptr) != 0) continue;
                int status = 0;
                while (waitpid(tid, &status, __WALL) < 0 && errno == EINTR) {
                }
                if (WIFSTOPPED(status) && (status >> 16) != PTRACE_EVENT_STOP &&
                    WSTOPSIG(status) != SIGTRAP)
                    t.pendingSignal = WSTOPSIG(status);
            }
        }
        close(dirFd);
        if (!found) break;
    }
    return count == 0 ? ESRCH : 0;
}

void DetachThreads(TThread* threads, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (!threads[i].attached) continue;
        ptrace(PTRACE_DETACH, threads[i].tid, nullptr,
               reinterpret_cast<void*>(static_cast<intptr_t>(threads[i].pendingSignal)));
    }
}

void ReadRegisters(TThread& t) {
    struct iovec iov = {&t.regs, sizeof(t.regs)};
    t.haveRegs = ptrace(PTRACE_GETREGSET, t.tid, reinterpret_cast<void*>(NT_PRSTATUS), &iov) == 0;
    iov = {&t.fpRegs, sizeof(t.fpRegs)};
    t.haveFpRegs =
        ptrace(PTRACE_GETREGSET, t.tid, reinterpret_cast<void*>(NT_PRFPREG), &iov) == 0;
}

// Replaces the registers of the crashing thread (stopped inside its signal
// handler) by those of the fault, from the ucontext the kernel saved.
void ApplyFaultContext(int memFd, uint64_t contextAddress, TThread& t) {
    // Only the part the kernel's signal frame has for sure (the rest of
    // glibc's ucontext_t may lie past the end of the stack).
    ucontext_t uc;
    memset(&uc, 0, sizeof(uc));
    if (!ReadTarget(memFd, contextAddress, &uc, offsetof(ucontext_t, uc_mcontext) + sizeof(mcontext_t)))
        return;
    auto* r = reinterpret_cast<struct user_regs_struct*>(&t.regs);
#if defined(__x86_64__)
    const greg_t* g = uc.uc_mcontext.gregs;
    r->r8 = g[REG_R8], r->r9 = g[REG_R9], r->r10 = g[REG_R10], r->r11 = g[REG_R11];
    r->r12 = g[REG_R12], r->r13 = g[REG_R13], r->r14 = g[REG_R14], r->r15 = g[REG_R15];
    r->rdi = g[REG_RDI], r->rsi = g[REG_RSI], r->rbp = g[REG_RBP], r->rbx = g[REG_RBX];
    r->rdx = g[REG_RDX], r->rax = g[REG_RAX], r->rcx = g[REG_RCX], r->rsp = g[REG_RSP];
    r->rip = g[REG_RIP], r->eflags = g[REG_EFL];
    r->orig_rax = static_cast<unsigned long>(-1);  // not in a system call
    r->cs = static_cast<unsigned long>(g[REG_CSGSFS] & 0xFFFF);
    t.haveRegs = true;
    if (uc.uc_mcontext.fpregs &&
        ReadTarget(memFd, reinterpret_cast<uint64_t>(uc.uc_mcontext.fpregs), &t.fpRegs,
                   sizeof(t.fpRegs)))
        t.haveFpRegs = true;
#elif defined(__aarch64__)
    for (int i = 0; i < 31; ++i) r->regs[i] = uc.uc_mcontext.regs[i];
    r->sp = uc.uc_mcontext.sp, r->pc = uc.uc_mcontext.pc, r->pstate = uc.uc_mcontext.pstate;
    t.haveRegs = true;
#endif
}

uint64_t ParseHex(const char*& p, const char* end) {
    uint64_t v = 0;
    for (; p < end; ++p) {
        char c = *p;
        int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
        if (d < 0) break;
        v = v * 16 + static_cast<uint64_t>(d);
    }
    return v;
}

void SkipBlanks(const char*& p, const char* end) {
    while (p < end && *p == ' ') ++p;
}

// One line of /proc/<pid>/maps: "start-end perms offset dev inode   name".
bool ParseMapsLine(const char* p, const char* end, TMapping& m) {
    m.start = ParseHex(p, end);
    if (p >= end || *p++ != '-') return false;
    m.end = ParseHex(p, end);
    SkipBlanks(p, end);
    if (end - p < 4 || m.end <= m.start) return false;
    m.flags = (p[0] == 'r' ? PF_R : 0) | (p[1] == 'w' ? PF_W : 0) | (p[2] == 'x' ? PF_X : 0);
    p += 4;
    SkipBlanks(p, end);
    m.offset = ParseHex(p, end);
    SkipBlanks(p, end);
    while (p < end && *p != ' ') ++p;  // device
    SkipBlanks(p, end);
    m.inode = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) m.inode = m.inode * 10 + uint64_t(*p - '0');
    SkipBlanks(p, end);
    m.name = p;
    m.nameLength = static_cast<size_t>(end - p);
    return true;
}

// How much of a mapping's memory goes into the core.
uint64_t ChooseDataSize(const TMapping& m, uint32_t dumpType, uint64_t pageSize) {
    const uint64_t size = m.end - m.start;
    if (!(m.flags & PF_R) || NameIs(m, "[vvar]") || NameIs(m, "[vvar_vclock]") ||
        NameIs(m, "[vsyscall]"))
        return 0;
    if (dumpType & kDumpWithFullMemory) return size <= kFullMappingLimit ? size : 0;
    const bool fileBacked = m.inode != 0 && m.nameLength > 0 && m.name[0] == '/';
    // Data of files counts too: a relocated read-only part (RELRO) holds
    // what a debugger needs to find the shared libraries.
    if (NameIs(m, "[vdso]") || !fileBacked || !(m.flags & PF_X))
        return size <= kNormalMappingLimit ? size : 0;
    // Code is in its file; the first page of a file mapped from its start
    // carries the ELF headers (and the build id).
    return m.offset == 0 ? pageSize : 0;
}

class CNoteWriter {
public:
    CNoteWriter(char* buffer, size_t size) : m_Buf(buffer), m_Size(size) {}
    bool Add(uint32_t type, const void* desc, size_t descSize, const char* name = "CORE") {
        const size_t nameSize = strlen(name) + 1;
        const size_t total = sizeof(Elf64_Nhdr) + Align4(nameSize) + Align4(descSize);
        if (total > m_Size - m_Len) return false;
        Elf64_Nhdr header = {static_cast<Elf64_Word>(nameSize), static_cast<Elf64_Word>(descSize),
                             type};
        memcpy(m_Buf + m_Len, &header, sizeof(header));
        memcpy(m_Buf + m_Len + sizeof(header), name, nameSize);
        memcpy(m_Buf + m_Len + sizeof(header) + Align4(nameSize), desc, descSize);
        m_Len += total;  // padding stays zero: the buffer came zeroed
        return true;
    }
    size_t Length() const { return m_Len; }

private:
    static size_t Align4(size_t n) { return (n + 3) & ~size_t(3); }
    char* m_Buf;
    size_t m_Size;
    size_t m_Len = 0;
};

void AddThreadNotes(CNoteWriter& notes, const TThread& t, pid_t pid, int signal) {
    struct elf_prstatus status;
    memset(&status, 0, sizeof(status));
    status.pr_info.si_signo = signal;
    status.pr_cursig = static_cast<short>(signal);
    status.pr_pid = t.tid;
    status.pr_pgrp = pid;
    if (t.haveRegs) memcpy(&status.pr_reg, &t.regs, sizeof(status.pr_reg));
    status.pr_fpvalid = t.haveFpRegs ? 1 : 0;
    notes.Add(NT_PRSTATUS, &status, sizeof(status));
}

void AddProcessNotes(CNoteWriter& notes, CArena& arena, pid_t pid, const TCrashInfo& crash,
                     const TMapping* maps, size_t mapCount, uint64_t pageSize) {
    struct elf_prpsinfo info;
    memset(&info, 0, sizeof(info));
    info.pr_pid = pid;
    info.pr_sname = 'R';
    ssize_t n = ReadProcFile(pid, "comm", info.pr_fname, sizeof(info.pr_fname) - 1);
    for (ssize_t i = 0; i < n; ++i)
        if (info.pr_fname[i] == '\n') info.pr_fname[i] = 0;
    n = ReadProcFile(pid, "cmdline", info.pr_psargs, sizeof(info.pr_psargs) - 1);
    for (ssize_t i = 0; i + 1 < n; ++i)
        if (info.pr_psargs[i] == 0) info.pr_psargs[i] = ' ';
    notes.Add(NT_PRPSINFO, &info, sizeof(info));

    if (crash.signal != 0) {
        siginfo_t si;
        memset(&si, 0, sizeof(si));
        si.si_signo = crash.signal;
        si.si_code = crash.code;
        si.si_addr = reinterpret_cast<void*>(crash.faultAddress);
        notes.Add(NT_SIGINFO, &si, sizeof(si));
    }

    char* auxv = static_cast<char*>(arena.Take(64 * 1024));
    n = auxv ? ReadProcFile(pid, "auxv", auxv, 64 * 1024) : -1;
    if (n > 0) notes.Add(NT_AUXV, auxv, static_cast<size_t>(n));

    // NT_FILE: count, page size, then (start, end, offset in pages) of each
    // file mapping, then their names, each terminated.
    size_t fileCount = 0, namesSize = 0;
    for (size_t i = 0; i < mapCount; ++i) {
        if (maps[i].nameLength == 0 || maps[i].name[0] != '/') continue;
        ++fileCount;
        namesSize += maps[i].nameLength + 1;
    }
    const size_t descSize = 16 + fileCount * 24 + namesSize;
    auto* desc = static_cast<uint64_t*>(arena.Take(descSize));
    if (fileCount == 0 || !desc) return;
    desc[0] = fileCount;
    desc[1] = pageSize;
    uint64_t* row = desc + 2;
    char* name = reinterpret_cast<char*>(desc + 2 + fileCount * 3);
    for (size_t i = 0; i < mapCount; ++i) {
        const TMapping& m = maps[i];
        if (m.nameLength == 0 || m.name[0] != '/') continue;
        *row++ = m.start, *row++ = m.end, *row++ = m.offset / pageSize;
        memcpy(name, m.name, m.nameLength);
        name += m.nameLength + 1;
    }
    notes.Add(NT_FILE, desc, descSize);
}

bool CopyMemory(int fd, int memFd, const TMapping& m, char* chunk, uint64_t pageSize) {
    for (uint64_t done = 0; done < m.dataSize;) {
        const size_t want = static_cast<size_t>(
            m.dataSize - done < kCopyChunk ? m.dataSize - done : kCopyChunk);
        if (!ReadTarget(memFd, m.start + done, chunk, want)) {
            // Page by page, zeros for what can't be read.
            for (size_t page = 0; page < want; page += pageSize) {
                const size_t len = want - page < pageSize ? want - page : pageSize;
                if (!ReadTarget(memFd, m.start + done + page, chunk + page, len))
                    memset(chunk + page, 0, len);
            }
        }
        if (!WriteAll(fd, chunk, want)) return false;
        done += want;
    }
    return true;
}

int WriteCoreStopped(int fd, pid_t pid, pid_t crashTid, uint64_t crashInfoAddress,
                     uint32_t dumpType, CArena& arena, TThread* threads, size_t threadCount) {
    const uint64_t pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    int memFd = OpenProcFile(pid, "mem");
    if (memFd < 0) return errno;

    TCrashInfo crash;
    if (crashInfoAddress == 0 || !ReadTarget(memFd, crashInfoAddress, &crash, sizeof(crash)))
        crash = TCrashInfo();
    for (size_t i = 0; i < threadCount; ++i) {
        ReadRegisters(threads[i]);
        if (threads[i].tid == crashTid && crash.context)
            ApplyFaultContext(memFd, reinterpret_cast<uint64_t>(crash.context), threads[i]);
    }

    char* mapsText = static_cast<char*>(arena.Take(kMapsTextLimit));
    auto* maps = static_cast<TMapping*>(arena.Take(kMaxMappings * sizeof(TMapping)));
    char* notesBuf = static_cast<char*>(arena.Take(kNotesLimit));
    char* chunk = static_cast<char*>(arena.Take(kCopyChunk));
    if (!mapsText || !maps || !notesBuf || !chunk) {
        close(memFd);
        return ENOMEM;
    }
    ssize_t mapsLength = ReadProcFile(pid, "maps", mapsText, kMapsTextLimit);
    if (mapsLength < 0) {
        int err = errno;
        close(memFd);
        return err;
    }
    size_t mapCount = 0;
    for (const char *p = mapsText, *end = mapsText + mapsLength; p < end && mapCount < kMaxMappings;) {
        const char* lineEnd = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(end - p)));
        if (!lineEnd) lineEnd = end;
        if (ParseMapsLine(p, lineEnd, maps[mapCount])) {
            maps[mapCount].dataSize = ChooseDataSize(maps[mapCount], dumpType, pageSize);
            ++mapCount;
        }
        p = lineEnd + 1;
    }

    // Notes: the crashing thread (or the first) leads; a debugger takes the
    // first thread as the current one.
    size_t lead = 0;
    for (size_t i = 0; i < threadCount; ++i)
        if (threads[i].tid == crashTid) lead = i;
    CNoteWriter notes(notesBuf, kNotesLimit);
    AddThreadNotes(notes, threads[lead], pid, crash.signal);
    AddProcessNotes(notes, arena, pid, crash, maps, mapCount, pageSize);
    if (threads[lead].haveFpRegs)
        notes.Add(NT_PRFPREG, &threads[lead].fpRegs, sizeof(threads[lead].fpRegs));
    for (size_t i = 0; i < threadCount; ++i) {
        if (i == lead) continue;
        AddThreadNotes(notes, threads[i], pid, crash.signal);  // as the kernel does
        if (threads[i].haveFpRegs) notes.Add(NT_PRFPREG, &threads[i].fpRegs, sizeof(threads[i].fpRegs));
    }

    const uint64_t headersSize = sizeof(Elf64_Ehdr) + (1 + mapCount) * sizeof(Elf64_Phdr);
    const uint64_t notesOffset = headersSize;
    uint64_t dataOffset = (notesOffset + notes.Length() + pageSize - 1) & ~(pageSize - 1);
    for (size_t i = 0; i < mapCount; ++i) {
        maps[i].fileOffset = dataOffset;
        dataOffset += maps[i].dataSize;
    }

    Elf64_Ehdr eh;
    memset(&eh, 0, sizeof(eh));
    memcpy(eh.e_ident, ELFMAG, SELFMAG);
    eh.e_ident[EI_CLASS] = ELFCLASS64;
    eh.e_ident[EI_DATA] = ELFDATA2LSB;
    eh.e_ident[EI_VERSION] = EV_CURRENT;
    eh.e_ident[EI_OSABI] = ELFOSABI_NONE;
    eh.e_type = ET_CORE;
    eh.e_machine = kMachine;
    eh.e_version = EV_CURRENT;
    eh.e_phoff = sizeof(Elf64_Ehdr);
    eh.e_ehsize = sizeof(Elf64_Ehdr);
    eh.e_phentsize = sizeof(Elf64_Phdr);
    eh.e_phnum = static_cast<Elf64_Half>(1 + mapCount);
    bool ok = WriteAll(fd, &eh, sizeof(eh));

    Elf64_Phdr ph;
    memset(&ph, 0, sizeof(ph));
    ph.p_type = PT_NOTE;
    ph.p_offset = notesOffset;
    ph.p_filesz = notes.Length();
    ph.p_align = 4;
    ok = ok && WriteAll(fd, &ph, sizeof(ph));
    for (size_t i = 0; i < mapCount && ok; ++i) {
        memset(&ph, 0, sizeof(ph));
        ph.p_type = PT_LOAD;
        ph.p_flags = maps[i].flags;
        ph.p_offset = maps[i].fileOffset;
        ph.p_vaddr = maps[i].start;
        ph.p_memsz = maps[i].end - maps[i].start;
        ph.p_filesz = maps[i].dataSize;
        ph.p_align = pageSize;
        ok = WriteAll(fd, &ph, sizeof(ph));
    }
    ok = ok && WriteAll(fd, notesBuf, notes.Length());
    const uint64_t padding = (notesOffset + notes.Length()) % pageSize;
    if (ok && padding != 0) {
        memset(chunk, 0, pageSize);
        ok = WriteAll(fd, chunk, static_cast<size_t>(pageSize - padding));
    }
    for (size_t i = 0; i < mapCount && ok; ++i) ok = CopyMemory(fd, memFd, maps[i], chunk, pageSize);
    int err = ok ? 0 : (errno ? errno : EIO);
    close(memFd);
    return err;
}

}  // namespace

bool WriteAll(int fd, const void* data, size_t size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t n = write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = ENOSPC;
            return false;
        }
        p += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

int WriteCore(int fd, pid_t pid, pid_t crashTid, uint64_t crashInfoAddress, uint32_t dumpType) {
    CArena arena(kMaxThreads * sizeof(TThread) + kMapsTextLimit +
                 kMaxMappings * sizeof(TMapping) + kNotesLimit + kCopyChunk + (2u << 20));
    if (!arena.IsValid()) return ENOMEM;
    auto* threads = static_cast<TThread*>(arena.Take(kMaxThreads * sizeof(TThread)));
    size_t threadCount = 0;
    int err = AttachThreads(pid, threads, threadCount);
    if (err == 0)
        err = WriteCoreStopped(fd, pid, crashTid, crashInfoAddress, dumpType, arena, threads,
                               threadCount);
    DetachThreads(threads, threadCount);
    return err;
}

CSafeText& CSafeText::Str(const char* text) { return Str(text, strlen(text)); }

CSafeText& CSafeText::Str(const char* text, size_t length) {
    for (size_t i = 0; i < length && m_Len < m_Size; ++i) m_Buf[m_Len++] = text[i];
    return *this;
}

CSafeText& CSafeText::Char(char c) { return Str(&c, 1); }

CSafeText& CSafeText::Dec(uint64_t value) {
    char digits[24];
    int n = 0;
    do {
        digits[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value);
    while (n > 0) Char(digits[--n]);
    return *this;
}

CSafeText& CSafeText::Hex(uint64_t value, int width) {
    char digits[16];
    int n = 0;
    do {
        digits[n++] = "0123456789abcdef"[value & 15];
        value >>= 4;
    } while (value);
    Str("0x");
    for (int i = n; i < width; ++i) Char('0');
    while (n > 0) Char(digits[--n]);
    return *this;
}

bool CSafeText::Flush(int fd) {
    bool ok = WriteAll(fd, m_Buf, m_Len);
    m_Len = 0;
    return ok;
}

}  // namespace platform::posix
