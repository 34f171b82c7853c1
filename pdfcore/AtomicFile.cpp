#include "pdfcore/AtomicFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

#include "base/ASError.h"

namespace {

bool g_forceNamed = false;

// ---------------------------------------------------------------- signals
// The one named temporary that exists at any moment (saves run one at a
// time), kept where a signal handler can reach it without allocating.
char g_pendingPath[PATH_MAX];
volatile sig_atomic_t g_pendingArmed = 0;
constexpr int kCleanupSignals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void RemoveTempAndReraise(int sig) {
    // Only async-signal-safe calls here: unlink, signal, raise.
    if (g_pendingArmed) unlink(g_pendingPath);
    signal(sig, SIG_DFL);
    raise(sig);  // delivered when the handler returns: the process ends by this signal
}

void InstallHandlers() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    for (int sig : kCleanupSignals) {
        struct sigaction old {};
        if (sigaction(sig, nullptr, &old) != 0) continue;
        // A signal the caller ignores (nohup) or handles itself is left alone.
        if (old.sa_handler != SIG_DFL) continue;
        struct sigaction sa {};
        sa.sa_handler = RemoveTempAndReraise;
        sigemptyset(&sa.sa_mask);
        for (int other : kCleanupSignals) sigaddset(&sa.sa_mask, other);
        sigaction(sig, &sa, nullptr);
    }
}

// Blocks the clean-up signals while a name is created and registered, so no
// signal falls between the two.
class SignalBlock {
public:
    SignalBlock() {
        sigset_t set;
        sigemptyset(&set);
        for (int sig : kCleanupSignals) sigaddset(&set, sig);
        sigprocmask(SIG_BLOCK, &set, &m_old);
    }
    ~SignalBlock() { sigprocmask(SIG_SETMASK, &m_old, nullptr); }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

private:
    sigset_t m_old;
};

void Arm(const std::string& path) {
    if (path.size() >= sizeof g_pendingPath) return;  // cannot be registered: left to the destructor
    g_pendingArmed = 0;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    std::memcpy(g_pendingPath, path.c_str(), path.size() + 1);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    g_pendingArmed = 1;
}

void Disarm() {
    g_pendingArmed = 0;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

// ---------------------------------------------------------------- names

[[noreturn]] void RaiseCantOpen() { ASRaiseErr(ErrSysPDDoc, kErrCantOpenForWrite); }

// A hidden name beside the target that does not exist yet: ".NAME.tm" and
// six letters or digits.
std::string CandidateName(const std::string& dir, const std::string& base) {
    static unsigned counter = 0;
    static const char kChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t x = (uint64_t(ts.tv_nsec) << 20) ^ uint64_t(ts.tv_sec) ^ (uint64_t(getpid()) << 40) ^ (++counter * 0x9E3779B97F4A7C15ull);
    std::string name = (dir == "/" ? std::string("/") : dir + "/") + "." + base + ".tm";
    for (int i = 0; i < 6; ++i) {
        x ^= x >> 33;
        x *= 0xff51afd7ed558ccdull;
        name += kChars[x % (sizeof kChars - 1)];
    }
    return name;
}

void SplitPath(const std::string& path, std::string& dir, std::string& base) {
    dir = ".";
    base = path;
    size_t slash = path.find_last_of('/');
    if (slash != std::string::npos) {
        dir = slash == 0 ? "/" : path.substr(0, slash);
        base = path.substr(slash + 1);
    }
}

// The mode an ordinary new file (or the file being replaced) would have;
// temporaries are created private.
mode_t TargetMode(const std::string& target) {
    struct stat st {};
    if (stat(target.c_str(), &st) == 0) return st.st_mode & 07777;
    mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

void CosTempFileForceNamedForTesting(bool named) { g_forceNamed = named; }

std::string CosResolveLinks(const std::string& path) {
    std::string p = path;
    // The same bound the system puts on a chain of links.
    for (int hop = 0; hop < 40; ++hop) {
        struct stat st {};
        if (lstat(p.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return p;
        std::vector<char> text(static_cast<size_t>(st.st_size > 0 ? st.st_size : PATH_MAX) + 1);
        ssize_t n = readlink(p.c_str(), text.data(), text.size());
        if (n <= 0 || static_cast<size_t>(n) >= text.size()) return p;
        std::string link(text.data(), static_cast<size_t>(n));
        if (link[0] == '/') {
            p = link;
        } else {
            size_t slash = p.find_last_of('/');
            p = slash == std::string::npos ? link : p.substr(0, slash + 1) + link;
        }
    }
    return p;  // a loop of links: opening it fails with a clear error
}

CosTempFile::CosTempFile(const std::string& target) {
    if (target.empty()) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    m_target = CosResolveLinks(target);
    SplitPath(m_target, m_dir, m_base);
    if (m_base.empty()) RaiseCantOpen();
    InstallHandlers();
#ifdef O_TMPFILE
    // Naming the file later goes through /proc/self/fd; without it, use a name.
    if (!g_forceNamed && access("/proc/self/fd", X_OK) == 0) {
        m_fd = open(m_dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
        if (m_fd >= 0) m_unnamed = true;
        // Folders on file systems without unnamed files refuse: fall back.
    }
#endif
    if (m_fd < 0) OpenNamed(m_dir, m_base);
    (void)fchmod(m_fd, TargetMode(m_target));
}

void CosTempFile::OpenNamed(const std::string& dir, const std::string& base) {
    std::string templ = (dir == "/" ? std::string("/") : dir + "/") + "." + base + ".tmXXXXXX";
    std::vector<char> name(templ.begin(), templ.end());
    name.push_back('\0');
    SignalBlock block;
    m_fd = mkstemp(name.data());
    if (m_fd < 0) RaiseCantOpen();
    m_tempPath = name.data();
    Arm(m_tempPath);
}

CosTempFile::~CosTempFile() {
    if (!m_committed) Discard();
}

void CosTempFile::Discard() {
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
    if (!m_tempPath.empty() && !m_committed) {
        unlink(m_tempPath.c_str());
        Disarm();
        m_tempPath.clear();
    }
}

void CosTempFile::Commit() {
    if (m_committed || m_fd < 0) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    if (fsync(m_fd) != 0) {
        Discard();
        ASRaiseErr(ErrSysFile, kErrFileWrite);
    }
    if (m_unnamed) {
        // rename() is what replaces the target atomically, and it needs a
        // name: link the finished file to a hidden one first.
        const std::string proc = "/proc/self/fd/" + std::to_string(m_fd);
        for (int attempt = 0; attempt < 100 && m_tempPath.empty(); ++attempt) {
            std::string name = CandidateName(m_dir, m_base);
            SignalBlock block;
            if (linkat(AT_FDCWD, proc.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
                m_tempPath = name;
                Arm(m_tempPath);
            } else if (errno != EEXIST) {
                break;
            }
        }
        if (m_tempPath.empty()) {
            Discard();
            ASRaiseErr(ErrSysPDDoc, kErrCannotRename);
        }
    }
    int fd = m_fd;
    m_fd = -1;
    if (close(fd) != 0) {
        Discard();
        ASRaiseErr(ErrSysFile, kErrFileWrite);
    }
    if (rename(m_tempPath.c_str(), m_target.c_str()) != 0) {
        Discard();
        ASRaiseErr(ErrSysPDDoc, kErrCannotRename);
    }
    m_committed = true;
    Disarm();
    m_tempPath.clear();
    // Make the rename itself durable.
    int dfd = open(m_dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        (void)fsync(dfd);
        close(dfd);
    }
}
