#include "app/AccessCommand.h"

#include "base/AppError.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/PrivacyAccess.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>
#include <QUrl>

namespace {

QString statusWord(int status)
{
    switch (status) {
    case PrivacyAccess::FullAccess:
        return QStringLiteral("granted");
    case PrivacyAccess::WriteOnly:
        return QStringLiteral("write only");
    case PrivacyAccess::NotDetermined:
        return QStringLiteral("not asked yet");
    default:
        return QStringLiteral("denied");
    }
}

// Grants or revokes each path on the list the Security Scopes page keeps.
int changeFolders(bool grant, const QStringList &paths, QTextStream &out, QTextStream &err)
{
    BookmarkController scopes;  // over the stored list, as the window's would be
    int status = 0;
    for (const QString &given : paths) {
        const QString canonical = QFileInfo(given).canonicalFilePath();
        if (grant) {
            if (canonical.isEmpty()) {
                err << "kelvara access: '" << given << "' does not exist" << Qt::endl;
                status = 1;
                continue;
            }
            if (const std::optional<BookmarkInfo> covering = scopes.findBookmark(QUrl::fromLocalFile(canonical))) {
                out << "folder " << canonical << ": already granted";
                if (covering->path() != canonical)
                    out << " by folder " << covering->path();
                out << Qt::endl;
                continue;
            }
            AppError error;
            if (!scopes.addBookmark(QUrl::fromLocalFile(canonical), QString(), &error)) {
                err << "kelvara access: '" << given << "' could not be granted: " << error.description << Qt::endl;
                status = 1;
                continue;
            }
            out << "folder " << canonical << ": granted" << Qt::endl;
            continue;
        }
        // The entry as stored: the path as written or, for one the window stored through a
        // link, where it leads.
        const QStringList candidates{QDir::cleanPath(QDir::current().absoluteFilePath(given)), canonical};
        std::optional<BookmarkInfo> entry;
        for (const BookmarkInfo &info : scopes.bookmarks()) {
            if (candidates.contains(info.path()) || candidates.contains(QDir::cleanPath(info.path())))
                entry = info;
        }
        if (!entry) {
            err << "kelvara access: '" << given << "' is not granted";
            const QString lookedUp = canonical.isEmpty() ? candidates.first() : canonical;
            if (const std::optional<BookmarkInfo> covering = scopes.findBookmark(QUrl::fromLocalFile(lookedUp)))
                err << "; it lies in the granted folder '" << covering->path() << "'";
            err << Qt::endl;
            status = 1;
            continue;
        }
        scopes.removeBookmark(entry->url);
        out << "folder " << entry->path() << ": revoked" << Qt::endl;
    }
    return status;
}

}  // namespace

int AccessCommand::main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName(QStringLiteral("Kelvara"));
    QTextStream out(stdout);
    QTextStream err(stderr);
    return run(app.arguments().mid(2), out, err);
}

int AccessCommand::run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    auto usage = [&err](const QString &problem) {
        err << "kelvara access: " << problem << "\nTry 'kelvara access --help'." << Qt::endl;
        return 2;
    };
    if (arguments.contains(QLatin1String("-h")) || arguments.contains(QLatin1String("--help"))) {
        out << usageText << Qt::flush;
        return 0;
    }
    if (arguments.isEmpty())
        return usage(QStringLiteral("a command is needed: grant, revoke or show"));
    const QString command = arguments.first();
    if (command == QLatin1String("show")) {
        if (arguments.size() > 1)
            return usage(QStringLiteral("unknown argument '%1'").arg(arguments.at(1)));
        for (auto kind : {PrivacyAccess::Kind::Calendars, PrivacyAccess::Kind::Reminders, PrivacyAccess::Kind::Contacts})
            out << PrivacyAccess::word(kind) << ": " << statusWord(PrivacyAccess::status(kind)) << Qt::endl;
        const QList<BookmarkInfo> granted = BookmarkController().bookmarks();
        if (granted.isEmpty())
            out << "folders: none granted" << Qt::endl;
        for (const BookmarkInfo &info : granted)
            out << "folder: " << info.path() << Qt::endl;
        return 0;
    }
    if (command != QLatin1String("grant") && command != QLatin1String("revoke"))
        return usage(QStringLiteral("unknown command '%1'").arg(command));
    if (arguments.size() < 2)
        return usage(QStringLiteral("name what to %1: calendars, reminders, contacts or folder PATH").arg(command));
    if (arguments.at(1) == QLatin1String("folder")) {
        if (arguments.size() < 3)
            return usage(QStringLiteral("name the folder to %1: kelvara access %1 folder PATH").arg(command));
        return changeFolders(command == QLatin1String("grant"), arguments.mid(2), out, err);
    }
    QList<PrivacyAccess::Kind> kinds;
    for (const QString &word : arguments.mid(1)) {
        const std::optional<PrivacyAccess::Kind> kind = PrivacyAccess::kindFromWord(word);
        if (!kind)
            return usage(QStringLiteral("unknown kind '%1': calendars, reminders, contacts or folder PATH").arg(word));
        kinds.append(*kind);
    }
    const int status = command == QLatin1String("grant") ? PrivacyAccess::FullAccess : PrivacyAccess::Denied;
    for (PrivacyAccess::Kind kind : kinds) {
        PrivacyAccess::setStatus(kind, status);
        out << PrivacyAccess::word(kind) << ": " << statusWord(status) << Qt::endl;
    }
    return 0;
}
