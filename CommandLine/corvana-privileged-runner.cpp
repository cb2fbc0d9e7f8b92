// The one program Corvana starts with administrator rights (through pkexec). It stays alive for
// the life of the Corvana process that started it, so the user is asked once, and it runs only
// /bin/mv -n, /bin/cp -R, /bin/rm -d -R and /bin/mkdir -p on absolute paths, never a shell.
// Plain C++ on purpose: the less code runs as root, the better.
//
//   corvana-privileged-runner INSTALL-FOLDER PACKAGED-HELPER
//
// It acts only where it is needed: it writes, moves and removes only inside INSTALL-FOLDER (a
// folder named "Corvana Helper"; mkdir -p may also make its parent), and copies only from
// PACKAGED-HELPER (the helper installed beside the runner, or a folder of the asking user's). The
// install folder must lie below a folder of the user who asked (PKEXEC_UID), so root writes
// nowhere that user does not already control. No path may pass through a symbolic link, and "."
// and ".." are not accepted.
//
// Protocol on standard input/output, all integers 32-bit little-endian:
//   greeting  "CORVANA-RUNNER 1\n"
//   request   count, then count times (length, bytes); the first field is the tool
//   reply     status (exit code; 128+signal; 255 refused), length, the tool's standard output

#include "Platform/CVFullIO.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

constexpr int kRefused = 255;
constexpr std::uint32_t kMaxFields = 16;
constexpr std::uint32_t kMaxField = 64 * 1024;

bool writeNumber(std::uint32_t value)
{
    unsigned char bytes[4];
    CVFullIO::putNumber(bytes, value);
    return CVFullIO::writeFully(1, bytes, 4);
}

// An absolute path in its plain form: no empty, "." or ".." component, no trailing "/".
bool plainAbsolute(const std::string &path)
{
    if (path.size() < 2 || path[0] != '/' || path.back() == '/' || path.find('\0') != std::string::npos)
        return false;
    std::size_t start = 1;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string::npos)
            end = path.size();
        const std::string name = path.substr(start, end - start);
        if (name.empty() || name == "." || name == "..")
            return false;
        start = end + 1;
    }
    return true;
}

std::string parentOf(const std::string &path)
{
    const std::size_t slash = path.find_last_of('/');
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

std::string nameOf(const std::string &path)
{
    return path.substr(path.find_last_of('/') + 1);
}

bool within(const std::string &path, const std::string &folder)
{
    return path == folder
        || (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 && path[folder.size()] == '/');
}

// Every existing folder on the way to the path (the path itself not included) is a real folder,
// not a link that could lead the tools somewhere else.
bool noLinksOnTheWay(const std::string &path)
{
    std::size_t slash = 0;
    while ((slash = path.find('/', slash + 1)) != std::string::npos) {
        struct stat info { };
        if (::lstat(path.substr(0, slash).c_str(), &info) != 0)
            return true; // nothing further exists
        if (!S_ISDIR(info.st_mode))
            return false;
    }
    return true;
}

bool exists(const std::string &path)
{
    struct stat info { };
    return ::lstat(path.c_str(), &info) == 0;
}

// The user who asked: the one pkexec names, else whoever started us.
uid_t askingUser()
{
    const char *uid = std::getenv("PKEXEC_UID");
    if (!uid)
        return ::getuid();
    char *end = nullptr;
    const unsigned long value = std::strtoul(uid, &end, 10);
    return end && *end == '\0' && end != uid ? uid_t(value) : uid_t(-1);
}

std::string g_installFolder;
std::string g_packagedHelper;

// The install folder lies below a folder that the asking user owns, reached without links.
bool acceptableInstallFolder(const std::string &folder)
{
    if (!plainAbsolute(folder) || nameOf(folder) != "Corvana Helper" || !noLinksOnTheWay(folder))
        return false;
    const uid_t user = askingUser();
    if (user == uid_t(-1))
        return false;
    for (std::string current = parentOf(folder);; current = parentOf(current)) {
        struct stat info { };
        if (::lstat(current.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == user)
            return true;
        if (current == "/")
            return false;
    }
}

// The helper to copy: the one installed beside this runner, or a folder of the asking user's own
// (a build tree), never something only root may read.
bool acceptablePackagedHelper(const std::string &folder)
{
    struct stat info { };
    if (!plainAbsolute(folder) || nameOf(folder) != "Corvana Helper" || !noLinksOnTheWay(folder)
        || ::lstat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || within(folder, g_installFolder))
        return false;
    if (info.st_uid == askingUser())
        return true;
    char self[4096];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0)
        return false;
    return folder == parentOf(std::string(self, std::size_t(n))) + "/Corvana Helper";
}

// A path the tools may write: the install folder or something in it, reached without links.
bool inInstallFolder(const std::string &path)
{
    return plainAbsolute(path) && within(path, g_installFolder) && noLinksOnTheWay(path);
}

// Only the four commands Corvana needs, each with its fixed options and its places.
bool allowed(const std::vector<std::string> &f)
{
    if (f.size() == 4 && f[0] == "/bin/mv" && f[1] == "-n")
        return inInstallFolder(f[2]) && inInstallFolder(f[3]) && f[2] != g_installFolder;
    if (f.size() == 4 && f[0] == "/bin/cp" && f[1] == "-R")
        return f[2] == g_packagedHelper && noLinksOnTheWay(f[2]) && inInstallFolder(f[3]);
    if (f.size() == 4 && f[0] == "/bin/rm" && f[1] == "-d" && f[2] == "-R")
        return inInstallFolder(f[3]);
    if (f.size() == 3 && f[0] == "/bin/mkdir" && f[1] == "-p")
        return inInstallFolder(f[2]) || (f[2] == parentOf(g_installFolder) && noLinksOnTheWay(f[2]));
    return false;
}

uid_t g_owner = 0;
gid_t g_group = 0;

int chownEntry(const char *path, const struct stat *, int, struct FTW *)
{
    ::lchown(path, g_owner, g_group);
    return 0;
}

// What the tools create belongs to the user who asked, not to root.
void giveToUser(const std::string &path)
{
    const char *uid = std::getenv("PKEXEC_UID");
    if (::geteuid() != 0 || !uid || path.empty())
        return;
    char *end = nullptr;
    const unsigned long value = std::strtoul(uid, &end, 10);
    if (!end || *end != '\0')
        return;
    g_owner = uid_t(value);
    g_group = gid_t(-1);
    ::nftw(path.c_str(), chownEntry, 32, FTW_PHYS);
}

std::string firstMissingFolder(const std::string &path)
{
    std::string missing;
    std::string current = path;
    while (current.size() > 1 && !exists(current)) {
        missing = current;
        current = current.substr(0, current.find_last_of('/'));
        if (current.empty())
            break;
    }
    return missing;
}

int run(const std::vector<std::string> &fields, std::string &output)
{
    if (!allowed(fields))
        return kRefused;
    const std::string created = fields[0] == "/bin/mkdir" ? firstMissingFolder(fields[2]) : std::string();

    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0)
        return kRefused;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<char *> argv;
    for (const std::string &field : fields)
        argv.push_back(const_cast<char *>(field.c_str()));
    argv.push_back(nullptr);
    static char path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    static char locale[] = "LC_ALL=C";
    char *env[] = { path, locale, nullptr };
    pid_t child = 0;
    const int spawned = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), env);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    if (spawned != 0) {
        ::close(pipeFds[0]);
        return kRefused;
    }
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t n = ::read(pipeFds[0], buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        output.append(buffer.data(), size_t(n));
    }
    ::close(pipeFds[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (code == 0) {
        if (fields[0] == "/bin/cp" || fields[0] == "/bin/mv")
            giveToUser(fields[3]);
        else if (fields[0] == "/bin/mkdir")
            giveToUser(created);
    }
    return code;
}

} // namespace

int main(int argc, char *argv[])
{
    ::umask(022);
    if (argc != 3)
        return 2;
    g_installFolder = argv[1];
    g_packagedHelper = argv[2];
    if (!acceptableInstallFolder(g_installFolder) || !acceptablePackagedHelper(g_packagedHelper))
        return 2;
    static const char greeting[] = "CORVANA-RUNNER 1\n";
    if (!CVFullIO::writeFully(1, greeting, sizeof greeting - 1))
        return 1;
    for (;;) {
        std::uint32_t count = 0;
        if (!CVFullIO::readNumber(0, count))
            return 0; // Corvana went away
        if (count == 0 || count > kMaxFields)
            return 1;
        std::vector<std::string> fields(count);
        for (std::string &field : fields) {
            std::uint32_t length = 0;
            if (!CVFullIO::readNumber(0, length) || length > kMaxField)
                return 1;
            field.resize(length);
            if (length > 0 && !CVFullIO::readFully(0, field.data(), length))
                return 1;
        }
        std::string output;
        const int status = run(fields, output);
        if (!writeNumber(std::uint32_t(status)) || !writeNumber(std::uint32_t(output.size()))
            || !CVFullIO::writeFully(1, output.data(), output.size()))
            return 1;
    }
}
