#include "app/AccessCommand.h"

#include "tools/security/PrivacyAccess.h"

#include <QCoreApplication>
#include <QTextStream>

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
        return 0;
    }
    if (command != QLatin1String("grant") && command != QLatin1String("revoke"))
        return usage(QStringLiteral("unknown command '%1'").arg(command));
    if (arguments.size() < 2)
        return usage(QStringLiteral("name what to %1: calendars, reminders or contacts").arg(command));
    QList<PrivacyAccess::Kind> kinds;
    for (const QString &word : arguments.mid(1)) {
        const std::optional<PrivacyAccess::Kind> kind = PrivacyAccess::kindFromWord(word);
        if (!kind)
            return usage(QStringLiteral("unknown kind '%1': calendars, reminders or contacts").arg(word));
        kinds.append(*kind);
    }
    const int status = command == QLatin1String("grant") ? PrivacyAccess::FullAccess : PrivacyAccess::Denied;
    for (PrivacyAccess::Kind kind : kinds) {
        PrivacyAccess::setStatus(kind, status);
        out << PrivacyAccess::word(kind) << ": " << statusWord(status) << Qt::endl;
    }
    return 0;
}
