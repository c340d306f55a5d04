#include "tools/builtin/FileAccessHandler.h"

#include "tools/builtin/Utf8TextFile.h"

#include "diagnostics/LogController.h"
#include "tools/results/ToolError.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/FileAccessPolicy.h"
#include "tools/security/ScopedSecurityAccess.h"

#include <QDateTime>
#include "base/AtomicFile.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTimeZone>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kSuccess = QStringLiteral("success");

// One listed item: where it is, and its attributes as read once from its full path.
struct ListedEntry {
    QString path;
    QString relativePath;
    QString name;
    bool hasAttributes = false;
    quint64 size = 0;
    struct timespec modified {};
};

// The value of a string parameter; another JSON type counts as absent.
std::optional<QString> stringParam(const QVariantMap &params, const QString &key)
{
    const auto it = params.constFind(key);
    if (it == params.cend() || it->typeId() != QMetaType::QString)
        return std::nullopt;
    return it->toString();
}

QString systemDescription(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

QString isoDate(const struct timespec &time)
{
    // Whole seconds, UTC, trailing Z: the formatter's default form.
    return QDateTime::fromSecsSinceEpoch(time.tv_sec, Qt::UTC).toString(QStringLiteral("yyyy-MM-ddTHH:mm:ssZ"));
}

QString joinPath(const QString &folder, const QString &name)
{
    if (folder.isEmpty() || folder.endsWith(QLatin1Char('/')))
        return folder + name;
    return folder + QLatin1Char('/') + name;
}

QByteArray encodedPath(const QString &path)
{
    return QFile::encodeName(path);
}

bool isDirectoryFollowingLinks(const QByteArray &path)
{
    struct stat st {};
    return ::stat(path.constData(), &st) == 0 && S_ISDIR(st.st_mode);
}

void readAttributes(ListedEntry &entry)
{
    struct stat st {};
    if (::lstat(encodedPath(entry.path).constData(), &st) != 0)
        return;
    entry.hasAttributes = true;
    entry.size = quint64(st.st_size);
    entry.modified = st.st_mtim;
}

bool earlier(const struct timespec &a, const struct timespec &b)
{
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

QVariantMap listErrorExtras(const QVariant &projectPath)
{
    return QVariantMap{{QStringLiteral("project_path"), projectPath},
                       {QStringLiteral("total_files"), 0},
                       {QStringLiteral("directories"), 0},
                       {QStringLiteral("files"), QVariantList{}}};
}

JSONToolResult readError(const QString &text, const QString &path)
{
    JSONToolResult result = JSONToolResult::errorResult(text);
    result.structuredContent.insert(QStringLiteral("file_path"), AnyCodable(path));
    result.structuredContent.insert(QStringLiteral("content"), AnyCodable(QString()));
    result.structuredContent.insert(QStringLiteral("encoding"), AnyCodable("UTF-8"));
    result.structuredContent.insert(QStringLiteral("line_count"), AnyCodable(0));
    result.structuredContent.insert(QStringLiteral("size"), AnyCodable(0));
    return result;
}

JSONToolResult writeError(const QString &description, const QString &path)
{
    JSONToolResult result = JSONToolResult::errorResult(QStringLiteral("Failed to write file: ") + description);
    result.structuredContent.insert(QStringLiteral("message"), AnyCodable(QStringLiteral("Failed to write file: ") + path));
    result.structuredContent.insert(QStringLiteral("file_path"), AnyCodable(path));
    result.structuredContent.insert(QStringLiteral("bytes_written"), AnyCodable(0));
    return result;
}

// Copies the content of a regular file to a new file, which gets the source's permission
// bits. Opened without waiting (a FIFO that slipped in after the check is refused, not
// waited on), looked at before a byte is read; the copy never follows a link planted at its
// name. Nothing on success, else the reason; a failed copy leaves no copy behind.
std::optional<QString> copyRegularFile(const QString &source, const QString &destination)
{
    const int in = ::open(encodedPath(source).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (in < 0)
        return systemDescription(errno);
    struct stat st {};
    if (::fstat(in, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(in);
        return QStringLiteral("'%1' is not a regular file").arg(source);
    }
    const QByteArray target = encodedPath(destination);
    const int out = ::open(target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (out < 0) {
        const int error = errno;
        ::close(in);
        return systemDescription(error);
    }
    std::optional<QString> failure;
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(in, buffer, sizeof buffer);
        if (got == 0)
            break;
        if (got < 0) {
            if (errno == EINTR)
                continue;
            failure = systemDescription(errno);
            break;
        }
        for (ssize_t written = 0; written < got && !failure;) {
            const ssize_t put = ::write(out, buffer + written, size_t(got - written));
            if (put < 0 && errno != EINTR)
                failure = systemDescription(errno);
            else if (put > 0)
                written += put;
        }
        if (failure)
            break;
    }
    if (!failure && ::fchmod(out, st.st_mode & 07777) != 0)
        failure = systemDescription(errno);
    if (::close(out) != 0 && !failure)
        failure = systemDescription(errno);
    ::close(in);
    if (failure)
        ::unlink(target.constData());
    return failure;
}

}  // namespace

FileAccessHandler *FileAccessHandler::shared()
{
    static FileAccessHandler *instance = nullptr;
    static std::once_flag once;
    std::call_once(once, [] { instance = new FileAccessHandler; });
    return instance;
}

FileAccessHandler::FileAccessHandler(BookmarkController *scManager)
    : m_scManager(scManager ? scManager : BookmarkController::shared())
{
}

QStringList FileAccessHandler::normalisedPatterns(const QVariant &extensions)
{
    QStringList patterns;
    if (extensions.typeId() != QMetaType::QVariantList && extensions.typeId() != QMetaType::QStringList)
        return patterns;
    for (const QVariant &item : extensions.toList()) {
        if (item.typeId() != QMetaType::QString)
            continue;
        const QString pattern = item.toString().trimmed().toLower();
        if (!pattern.isEmpty())
            patterns.append(pattern);
    }
    return patterns;
}

bool FileAccessHandler::matchesPatterns(const QString &fileName, const QStringList &patterns)
{
    if (patterns.isEmpty())
        return true;
    const QString name = fileName.toLower();
    for (const QString &pattern : patterns) {
        if (pattern == QLatin1String("*"))
            return true;
        const qsizetype star = pattern.indexOf(QLatin1Char('*'));
        if (star >= 0) {
            const QString prefix = pattern.left(star);
            const QString suffix = pattern.mid(star + 1);
            if (prefix.isEmpty() && suffix.isEmpty())
                return true;
            if (prefix.isEmpty()) {
                if (name.endsWith(suffix))
                    return true;
            } else if (suffix.isEmpty()) {
                if (name.startsWith(prefix))
                    return true;
            } else if (name.startsWith(prefix) && name.endsWith(suffix) && name.size() >= prefix.size() + suffix.size()) {
                return true;
            }
            continue;
        }
        const QString extension = pattern.startsWith(QLatin1Char('.')) ? pattern : QLatin1Char('.') + pattern;
        if (name.endsWith(extension))
            return true;
    }
    return false;
}

qsizetype FileAccessHandler::lineCount(const QString &text)
{
    // Every line-end character splits, so "\r\n" makes two ends.
    qsizetype ends = 0;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if ((u >= 0x0A && u <= 0x0D) || u == 0x85 || u == 0x2028 || u == 0x2029)
            ++ends;
    }
    return ends + 1;
}

JSONToolResult FileAccessHandler::listFiles(const QVariantMap &params) const
{
    LogController *logger = LogController::shared();
    const std::optional<QString> given = stringParam(params, QStringLiteral("project_path"));
    if (!given || given->isEmpty()) {
        return ToolError::report(logger, QStringLiteral("Tool parameter 'project_path' must not be empty."), -1,
                                 MCPLogMessageType::Info, listErrorExtras(given.value_or(QString())));
    }
    const QString projectPath = *given;
    const QString root = projectPath.trimmed();
    const QString sort = stringParam(params, QStringLiteral("sort")).value_or(QStringLiteral("name"));
    const auto recursiveValue = params.constFind(QStringLiteral("recursive"));
    const bool recursive = (recursiveValue != params.cend() && recursiveValue->typeId() == QMetaType::Bool)
                               ? recursiveValue->toBool()
                               : true;
    const QStringList patterns = normalisedPatterns(params.value(QStringLiteral("extensions")));

    ScopedSecurityAccess access(m_scManager, root, FileAccessPolicy::Intent::read);
    if (!access.allowed()) {
        return ToolError::report(logger, QStringLiteral("Failed to list files: ") + access.denial(), -1, MCPLogMessageType::Info,
                                 listErrorExtras(projectPath));
    }

    QList<ListedEntry> entries;
    qint64 directories = 0;
    auto take = [&](const QString &folder, const QString &relativePrefix, const QString &name) {
        ListedEntry entry;
        entry.name = name;
        entry.relativePath = relativePrefix.isEmpty() ? name : relativePrefix + QLatin1Char('/') + name;
        entry.path = joinPath(folder, name);
        entries.append(std::move(entry));
    };

    if (!recursive) {
        DIR *dir = ::opendir(encodedPath(root).constData());
        if (!dir) {
            const QString description = QStringLiteral("The folder '%1' couldn't be opened: %2").arg(root, systemDescription(errno));
            return ToolError::report(logger, description, -1, MCPLogMessageType::Info, listErrorExtras(projectPath));
        }
        while (const dirent *item = ::readdir(dir)) {
            if (std::strcmp(item->d_name, ".") == 0 || std::strcmp(item->d_name, "..") == 0)
                continue;
            const QString name = QFile::decodeName(item->d_name);
            if (matchesPatterns(name, patterns))
                take(root, QString(), name);
        }
        ::closedir(dir);
        directories = 1;
    } else {
        // Depth first, hidden items included. A folder that cannot be opened is passed
        // over; a link to a folder counts as a folder and is not followed.
        struct Pending {
            QString folder;
            QString relative;
        };
        QList<Pending> stack{{root, QString()}};
        while (!stack.isEmpty()) {
            const Pending current = stack.takeLast();
            DIR *dir = ::opendir(encodedPath(current.folder).constData());
            if (!dir)
                continue;
            QList<Pending> below;
            while (const dirent *item = ::readdir(dir)) {
                if (std::strcmp(item->d_name, ".") == 0 || std::strcmp(item->d_name, "..") == 0)
                    continue;
                const QString name = QFile::decodeName(item->d_name);
                const QString full = joinPath(current.folder, name);
                const QByteArray encoded = encodedPath(full);
                bool isDirectory = item->d_type == DT_DIR;
                if (item->d_type == DT_LNK || item->d_type == DT_UNKNOWN)
                    isDirectory = isDirectoryFollowingLinks(encoded);
                if (isDirectory) {
                    ++directories;
                    if (item->d_type == DT_DIR || (item->d_type == DT_UNKNOWN && !QFileInfo(full).isSymLink())) {
                        below.append({full, current.relative.isEmpty() ? name : current.relative + QLatin1Char('/') + name});
                    }
                    continue;
                }
                if (matchesPatterns(name, patterns))
                    take(current.folder, current.relative, name);
            }
            ::closedir(dir);
            std::reverse(below.begin(), below.end());
            stack.append(below);
        }
    }

    if (entries.isEmpty()) {
        return ToolError::report(logger, QStringLiteral("No files or directories found"), -1, MCPLogMessageType::Info,
                                 listErrorExtras(projectPath));
    }

    for (ListedEntry &entry : entries)
        readAttributes(entry);

    // "size" and "date" are compared exactly; any other word sorts by relative path.
    if (sort == QLatin1String("size")) {
        std::stable_sort(entries.begin(), entries.end(), [](const ListedEntry &a, const ListedEntry &b) {
            return (a.hasAttributes ? a.size : 0) < (b.hasAttributes ? b.size : 0);
        });
    } else if (sort == QLatin1String("date")) {
        const struct timespec distantPast {std::numeric_limits<time_t>::min(), 0};
        std::stable_sort(entries.begin(), entries.end(), [&](const ListedEntry &a, const ListedEntry &b) {
            return earlier(a.hasAttributes ? a.modified : distantPast, b.hasAttributes ? b.modified : distantPast);
        });
    } else {
        std::stable_sort(entries.begin(), entries.end(),
                         [](const ListedEntry &a, const ListedEntry &b) { return a.relativePath < b.relativePath; });
    }

    QJsonArray files;
    QStringList lines;
    for (const ListedEntry &entry : std::as_const(entries)) {
        if (!entry.hasAttributes) {
            files.append(QJsonObject());
            continue;
        }
        const QString modified = isoDate(entry.modified);
        files.append(QJsonObject{{QStringLiteral("path"), entry.path},
                                 {QStringLiteral("relative_path"), entry.relativePath},
                                 {QStringLiteral("name"), entry.name},
                                 {QStringLiteral("size"), double(entry.size)},
                                 {QStringLiteral("modified"), modified},
                                 {QStringLiteral("last_modified"), modified}});
        lines.append(QStringList{entry.path, entry.relativePath, entry.name, QString::number(entry.size), modified, modified}
                         .join(QStringLiteral(", ")));
    }

    JSONToolResult result;
    result.content.append(JSONToolContent{QStringLiteral("text"), lines.join(QLatin1Char('\n'))});
    result.structuredContent.insert(kSuccess, AnyCodable(true));
    result.structuredContent.insert(QStringLiteral("project_path"), AnyCodable(projectPath));
    result.structuredContent.insert(QStringLiteral("total_files"), AnyCodable(qint64(files.size())));
    result.structuredContent.insert(QStringLiteral("directories"), AnyCodable(directories));
    result.structuredContent.insert(QStringLiteral("files"), AnyCodable(files));
    return result;
}

JSONToolResult FileAccessHandler::readFile(const QVariantMap &params) const
{
    const QString path = stringParam(params, QStringLiteral("file_path")).value_or(QString()).trimmed();
    if (path.isEmpty()) {
        QVariantMap extras{{QStringLiteral("file_path"), path},
                           {QStringLiteral("content"), QString()},
                           {QStringLiteral("encoding"), QStringLiteral("UTF-8")},
                           {QStringLiteral("line_count"), 0},
                           {QStringLiteral("size"), 0}};
        return ToolError::report(LogController::shared(), QStringLiteral("Tool parameter 'file_path' must not be empty."), -1,
                                                  MCPLogMessageType::Info, extras);
    }

    // Before anything is looked at: outside the grants not even the existence is told.
    ScopedSecurityAccess access(m_scManager, path, FileAccessPolicy::Intent::read);
    if (!access.allowed())
        return readError(QStringLiteral("Failed to read file: ") + access.denial(), path);

    if (!QFileInfo::exists(path))
        return readError(QStringLiteral("File '") + path + QStringLiteral("' does not exist."), path);

    QString description;
    // An image is given as one, for a client to show, not refused as text that is no UTF-8.
    if (const QString mimeType = Utf8TextFile::imageMimeType(path); !mimeType.isEmpty()) {
        const std::optional<QByteArray> data = Utf8TextFile::readBytes(path, &description);
        if (!data)
            return readError(QStringLiteral("Failed to read file: ") + description, path);
        JSONToolResult result;
        result.content.append(JSONToolContent{QStringLiteral("image"), QString(),
                                              QJsonObject{{QStringLiteral("data"), QString::fromLatin1(data->toBase64())},
                                                          {QStringLiteral("mimeType"), mimeType}}});
        result.structuredContent.insert(kSuccess, AnyCodable(true));
        result.structuredContent.insert(QStringLiteral("file_path"), AnyCodable(path));
        result.structuredContent.insert(QStringLiteral("encoding"), AnyCodable("base64"));
        result.structuredContent.insert(QStringLiteral("mimeType"), AnyCodable(mimeType));
        result.structuredContent.insert(QStringLiteral("size"), AnyCodable(qint64(data->size())));
        return result;
    }
    qint64 bytes = 0;
    const std::optional<QString> read = Utf8TextFile::read(path, &description, 0, &bytes);
    if (!read)
        return readError(QStringLiteral("Failed to read file: ") + description, path);
    const QString &text = *read;

    JSONToolResult result;
    result.content.append(JSONToolContent{QStringLiteral("text"), text});
    result.structuredContent.insert(kSuccess, AnyCodable(true));
    result.structuredContent.insert(QStringLiteral("file_path"), AnyCodable(path));
    result.structuredContent.insert(QStringLiteral("content"), AnyCodable(text));
    result.structuredContent.insert(QStringLiteral("encoding"), AnyCodable("UTF-8"));
    result.structuredContent.insert(QStringLiteral("line_count"), AnyCodable(qint64(lineCount(text))));
    result.structuredContent.insert(QStringLiteral("size"), AnyCodable(bytes));
    return result;
}

JSONToolResult FileAccessHandler::writeFile(const QVariantMap &params) const
{
    LogController *logger = LogController::shared();
    const QString path = stringParam(params, QStringLiteral("file_path")).value_or(QString()).trimmed();
    const QString content = stringParam(params, QStringLiteral("content")).value_or(QString());
    const QVariantMap extras{{QStringLiteral("file_path"), path}, {QStringLiteral("bytes_written"), 0}};
    if (path.isEmpty())
        return ToolError::report(logger, QStringLiteral("Tool parameter 'file_path' must not be empty."), -1, MCPLogMessageType::Info, extras);
    if (content.isEmpty())
        return ToolError::report(logger, QStringLiteral("Tool parameter 'content' must not be empty."), -1, MCPLogMessageType::Info, extras);

    ScopedSecurityAccess access(m_scManager, path, FileAccessPolicy::Intent::write);
    if (!access.allowed())
        return writeError(access.denial(), path);

    // A FIFO, a device, a socket or a folder stays what it is: refused before any backup,
    // so nothing waits on it and nothing replaces it.
    struct stat target {};
    if (::stat(encodedPath(path).constData(), &target) == 0 && !S_ISREG(target.st_mode))
        return writeError(QStringLiteral("'%1' is not a regular file").arg(path), path);

    const QFileInfo info(path);
    if (info.exists() || info.isSymLink()) {
        const QString backupPath = path + QStringLiteral(".backup");
        const FileAccessPolicy::Decision backupAccess =
            FileAccessPolicy::check(m_scManager, backupPath, FileAccessPolicy::Intent::write);
        if (!backupAccess.allowed())
            return writeError(*backupAccess.denial, path);
        const QFileInfo backup(backupPath);
        if (backup.exists() || backup.isSymLink()) {
            QFile old(backupPath);
            if (!old.remove())
                return writeError(QStringLiteral("The old backup '%1' couldn't be removed: %2").arg(backupPath, old.errorString()), path);
        }
        // The backup holds the content (of a link's target, for a link); the file itself is
        // then replaced in one step, keeping its mode, owner and links, and stays as it was
        // if the write fails.
        if (const std::optional<QString> failure = copyRegularFile(path, backupPath))
            return writeError(QStringLiteral("The file '%1' couldn't be copied to '%2': %3").arg(path, backupPath, *failure), path);
    }

    const QByteArray bytes = content.toUtf8();
    if (const std::optional<QString> failure = AtomicFile::write(path, bytes))
        return writeError(QStringLiteral("The file '%1' couldn't be saved: %2").arg(path, *failure), path);

    JSONToolResult result;
    const QString message = QStringLiteral("File saved successfully");
    result.content.append(JSONToolContent{QStringLiteral("text"), message});
    result.structuredContent.insert(kSuccess, AnyCodable(true));
    result.structuredContent.insert(QStringLiteral("file_path"), AnyCodable(path));
    result.structuredContent.insert(QStringLiteral("message"), AnyCodable(message));
    result.structuredContent.insert(QStringLiteral("bytes_written"), AnyCodable(qint64(bytes.size())));
    return result;
}
