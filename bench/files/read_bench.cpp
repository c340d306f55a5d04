// Peak resident memory of read_file on text files of 1, 10 and 100 MB: each read runs in a
// child process of its own, which reports how far its high-water mark rose above what it held
// before the read. Goal: under three times the file's size plus 40 MB.
//
// The read limit (mcp.files.maxReadBytes, 16 MiB by default) is raised for the run, inside a
// temporary XDG sandbox whose folder is granted to the tools, so the larger files are read at all.

#include "base/UserDefaults.h"
#include "tools/builtin/FileAccessHandler.h"
#include "tools/builtin/Utf8TextFile.h"
#include "tools/security/BookmarkController.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

long statusKiB(const char *field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field, 0) == 0)
            return std::stol(line.substr(std::string(field).size()));
    return 0;
}

// Writes the file in the parent, so its pages are not counted against the reader.
void writeText(const QString &path, qint64 bytes)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    const QByteArray line = QByteArray("The quick brown fox jumps over the lazy dog, again and again.\n");
    for (qint64 written = 0; written < bytes; written += line.size())
        file.write(line);
}

}  // namespace

int main(int argc, char **argv)
{
    QTemporaryDir sandbox;
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(sandbox.path() + QStringLiteral("/config")));
    qputenv("XDG_DATA_HOME", QFile::encodeName(sandbox.path() + QStringLiteral("/data")));
    QCoreApplication app(argc, argv);
    UserDefaults::standard()->setValue(Utf8TextFile::maxReadBytesKey, qint64(256) << 20);
    UserDefaults::standard()->sync();
    // The files are read where the tools may read: a granted folder.
    BookmarkController().addBookmark(QUrl::fromLocalFile(sandbox.path()));

    std::printf("%-10s %14s %16s %10s\n", "file", "peak rise MB", "goal (3x+40) MB", "result");
    for (const int megabytes : {1, 10, 100}) {
        const QString path = sandbox.path() + QStringLiteral("/text-%1.txt").arg(megabytes);
        writeText(path, qint64(megabytes) << 20);
        int pipeFds[2];
        if (::pipe(pipeFds) != 0)
            return 1;
        const pid_t child = ::fork();
        if (child == 0) {
            ::close(pipeFds[0]);
            FileAccessHandler handler(nullptr);
            const long before = statusKiB("VmRSS:");
            const JSONToolResult result = handler.readFile({{QStringLiteral("file_path"), path}});
            const long peak = statusKiB("VmHWM:");
            const long rise = result.structuredContent.value(QStringLiteral("success")).toJson().toBool() ? peak - before : -1;
            [[maybe_unused]] const ssize_t n = ::write(pipeFds[1], &rise, sizeof rise);
            ::_exit(0);
        }
        ::close(pipeFds[1]);
        long rise = -1;
        [[maybe_unused]] const ssize_t n = ::read(pipeFds[0], &rise, sizeof rise);
        ::close(pipeFds[0]);
        ::waitpid(child, nullptr, 0);
        const double riseMB = rise / 1024.0;
        const double goal = 3.0 * megabytes + 40;
        std::printf("%-10s %14.1f %16.0f %10s\n", (std::to_string(megabytes) + " MB").c_str(), riseMB, goal,
                    rise < 0 ? "failed" : riseMB < goal ? "within" : "over");
    }
    return 0;
}
