// The temporary file behind an atomic save, and its clean-up.
//
// The bytes of a save go to a temporary file in the target's own folder
// (so that the final rename stays on one file system), and the target is
// replaced only once the last byte is written and synced.  Where the system
// offers it (Linux, O_TMPFILE), the temporary has no name at all while it
// is written: a process killed in any way leaves nothing behind.  Otherwise
// it is the hidden file ".NAME.tmXXXXXX"; its path is then registered with
// handlers for SIGINT, SIGTERM and SIGHUP, which remove it before the
// process ends.  Only SIGKILL (or a crash of the machine) can leave such a
// file; it is never needed afterwards and can be deleted.
#pragma once

#include <string>

// The file a save writes to.  The target path is followed through symbolic
// links: a link stays a link, and the file it points to is replaced.
class CosTempFile {
public:
    // Opens the temporary for `target`; raises "unable to open file for
    // writing; it may be locked or unavailable" when it cannot.
    explicit CosTempFile(const std::string& target);
    ~CosTempFile();
    CosTempFile(const CosTempFile&) = delete;
    CosTempFile& operator=(const CosTempFile&) = delete;

    int Fd() const { return m_fd; }
    // The path that is replaced: the target, or the file its links lead to.
    const std::string& ResolvedTarget() const { return m_target; }
    // The temporary's name; empty while it has none.
    const std::string& TempPath() const { return m_tempPath; }
    bool Unnamed() const { return m_unnamed; }

    // Syncs the data, gives it the target's name in one step and syncs the
    // folder.  Raises "a file write error has occurred" or "unable to
    // rename temporary file to Save As name"; the temporary is then gone and
    // the target untouched.
    void Commit();
    // Closes and removes the temporary (also done by the destructor when
    // Commit did not succeed).
    void Discard();

private:
    void OpenNamed(const std::string& dir, const std::string& base);

    std::string m_target;
    std::string m_dir;
    std::string m_base;
    std::string m_tempPath;
    int m_fd = -1;
    bool m_unnamed = false;
    bool m_committed = false;
};

// The file that writing to `path` replaces: `path` itself, or, when it is a
// symbolic link, the file at the end of its chain of links (which need not
// exist yet).  Relative link texts are taken from the link's own folder.
std::string CosResolveLinks(const std::string& path);

// Test hook: true makes every temporary a named one, as on systems without
// unnamed temporary files.
void CosTempFileForceNamedForTesting(bool named);
