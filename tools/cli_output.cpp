#include "cli_output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "cli_common.h"
#include "cli_progress.h"

namespace {

// Runs `write` on an open stream and closes it; a failed write or close becomes -3 with its
// reason in `why`.
int write_and_close(std::FILE* file, const std::function<int(std::FILE*)>& write,
                    std::string& why) {
    errno = 0;
    int status = write(file);
    if (std::ferror(file) && status == 0) status = -3;
    if (status == -3) why = std::string("cannot write: ") + std::strerror(errno != 0 ? errno : EIO);
    if (std::fclose(file) != 0 && status == 0) {
        status = -3;
        why = std::string("cannot write: ") + std::strerror(errno);
    }
    if (status == 0 && TerminalProgress::interrupted()) status = 1;
    return status;
}

int report_write_status(const std::string& target, int status, const std::string& why) {
    if (status == -3) return report_error(target, why);
    return report_status(target, "writing", status);
}

// Where a symbolic link leads, followed to its end even when that does not exist yet, so that
// the file behind the link is the one written and the link stays; any other path as it is.
std::string link_destination(const std::string& target) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::path path = target;
    for (int hops = 0; hops < 40 && fs::is_symlink(path, error); ++hops) {
        const fs::path link = fs::read_symlink(path, error);
        if (error) break;
        path = link.is_absolute() ? link : path.parent_path() / link;
    }
    return path.string();
}

bool is_regular_or_absent(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) != 0 ? errno == ENOENT : S_ISREG(info.st_mode);
}

// Writes in place through `file` (null when it could not be opened).
int write_in_place(const std::string& target, std::FILE* file,
                   const std::function<int(std::FILE*)>& write) {
    if (file == nullptr)
        return report_error(target, std::string("cannot open: ") + std::strerror(errno));
    std::string why;
    const int status = write_and_close(file, write, why);
    return status == 0 ? kExitOk : report_write_status(target, status, why);
}

}  // namespace

bool is_standard_output(const std::string& target) {
    return target == "-" || target == "/dev/stdout";
}

std::FILE* summary_stream(const std::string& target) {
    return is_standard_output(target) ? stderr : stdout;
}

int write_output(const std::string& target, const std::function<int(std::FILE*)>& write) {
    // Standard output is written where it stands, through a copy of its descriptor: opening
    // /dev/stdout anew would truncate a file the caller appends to, and renaming would replace it.
    if (is_standard_output(target)) {
        std::fflush(stdout);
        const int fd = dup(STDOUT_FILENO);
        std::FILE* file = fd < 0 ? nullptr : fdopen(fd, "wb");
        if (file == nullptr && fd >= 0) close(fd);
        return write_in_place(target, file, write);
    }
    std::string why;
    const std::string destination = link_destination(target);
    struct stat info;
    const bool exists = stat(destination.c_str(), &info) == 0;
    if (exists && S_ISDIR(info.st_mode)) return report_error(target, "is a directory");
    if (exists && !S_ISREG(info.st_mode))
        return write_in_place(target, std::fopen(destination.c_str(), "wb"), write);
    std::string temporary = destination + ".XXXXXX";
    const int fd = mkstemp(temporary.data());
    if (fd < 0) {
        return report_error(target,
                            std::string("cannot create a file beside it: ") + std::strerror(errno));
    }
    // mkstemp makes the file private; the result gets the permissions of the file it replaces,
    // or those of any new file.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, exists ? (info.st_mode & 07777) : (0666 & ~mask));
    std::FILE* file = fdopen(fd, "wb");
    if (file == nullptr) {
        close(fd);
        std::remove(temporary.c_str());
        return report_error(target, "out of memory");
    }
    int status = write_and_close(file, write, why);
    // Checked again just before the rename: only a regular file or a free name is replaced.
    if (status == 0 && !is_regular_or_absent(destination)) {
        status = -3;
        why = "not replaced: it is no longer a regular file";
    }
    if (status == 0 && std::rename(temporary.c_str(), destination.c_str()) != 0) {
        status = -3;
        why = std::string("cannot rename the finished file into place: ") + std::strerror(errno);
    }
    if (status != 0) std::remove(temporary.c_str());
    return status == 0 ? kExitOk : report_write_status(target, status, why);
}
