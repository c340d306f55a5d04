#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

class BookmarkController;

// Decides whether the file tools, the file resources and the script host may touch a path.
// They act only inside the files and folders the user granted (the BookmarkController's
// list), judged on the location the system will really reach: symbolic links and ".."
// resolved, for an item that does not exist yet from its nearest existing parent. Kelvara's
// own configuration, its store and exported bundle, its resources and the folders of its
// script tools' sources are never written, whatever is granted; the configuration, which
// holds the server's token and the chat's keys, is not read either.
//
// Any thread: the decision reads the controller's list under its lock, and the folders of
// script sources under a lock of its own.
class FileAccessPolicy {
public:
    enum class Intent {
        read,    // read a file, list a folder, ask whether an item is there
        write,   // create or replace a file or folder; the name and what it leads to both count
        remove,  // remove the item itself (a link, not its target), with all below it
    };
    enum class Caller {
        fileTool,    // built-in file tools and file resources: granted locations only
        scriptHost,  // scripts: also read Kelvara's resources and script sources (require)
    };

    struct Decision {
        QString resolvedPath;
        // The reason, worded to follow an operation's own failure prefix
        // ("Failed to read file: ").
        std::optional<QString> denial;
        bool allowed() const { return !denial.has_value(); }
    };

    // No controller counts as nothing granted.
    static Decision check(const BookmarkController *grants, const QString &path, Intent intent,
                          Caller caller = Caller::fileTool);

    // The absolute location a path leads to, with "." and ".." and every symbolic link on the
    // way resolved; components that do not exist are taken as written. followLast false
    // leaves a link in the last place unresolved (what removing or renaming acts on).
    // Relative paths count from the current folder.
    static QString resolvedPath(const QString &path, bool followLast = true);
    // Whether path is folder or lies below it (both absolute and clean).
    static bool isWithin(const QString &path, const QString &folder);
    // "kelvara access grant folder PATH", PATH quoted for a shell where it needs it.
    static QString grantCommand(const QString &folder);

    // Remembers a script tool's source: its folder (where the modules it requires lie) is
    // never written through the tools, and scripts may read it without a grant.
    static void addScriptSource(const QString &scriptPath);
    static QStringList scriptSourceFolders();
    // Remembers a file or bundle folder of code Kelvara loads (a registered plug-in): it
    // and all below it are never written or removed through the tools.
    static void addProtectedCode(const QString &path);

    struct ProtectedLocation {
        QString path;      // resolved
        QString what;      // "Kelvara's configuration", ...
        bool unreadable;   // not read either
    };
    // Kelvara's own locations, resolved, as the current environment names them.
    static QList<ProtectedLocation> protectedLocations();
};
