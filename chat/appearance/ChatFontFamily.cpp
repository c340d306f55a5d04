#include "chat/appearance/ChatFontFamily.h"

#include <QFontDatabase>

QStringList ChatFontFamily::rawValues()
{
    static const QStringList names{
        QStringLiteral("System Default"), QStringLiteral("System Monospaced"), QStringLiteral("System Rounded"),
        QStringLiteral("System Serif"), QStringLiteral("SF Mono"), QStringLiteral("Menlo"), QStringLiteral("Monaco"),
        QStringLiteral("Courier New"), QStringLiteral("JetBrains Mono"), QStringLiteral("Fira Code"),
        QStringLiteral("Hack"), QStringLiteral("Source Code Pro"), QStringLiteral("Helvetica Neue"),
        QStringLiteral("Georgia"), QStringLiteral("Palatino")};
    return names;
}

QString ChatFontFamily::rawValue(Value family) { return rawValues().value(int(family)); }

std::optional<ChatFontFamily::Value> ChatFontFamily::fromRawValue(const QString &raw)
{
    const qsizetype index = rawValues().indexOf(raw);
    if (index < 0)
        return std::nullopt;
    return Value(index);
}

bool ChatFontFamily::isInstalled(Value family)
{
    if (!isNamed(family))
        return true;
    // The database answers for the exact family; fontconfig's substitutes don't count.
    return QFontDatabase::families().contains(rawValue(family), Qt::CaseInsensitive);
}

QFont ChatFontFamily::font(Value family, double size, QFont::Weight weight)
{
    QFont f;
    switch (family) {
    case SystemDefault:
    case SystemRounded: // the desktop has no rounded design: its general font stands in
        f = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        break;
    case SystemSerif:
        f = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        f.setFamilies({QStringLiteral("serif")});
        f.setStyleHint(QFont::Serif);
        break;
    case SystemMono: f = QFontDatabase::systemFont(QFontDatabase::FixedFont); break;
    default:
        f = isInstalled(family) ? QFont(rawValue(family)) : QFontDatabase::systemFont(QFontDatabase::FixedFont);
        break;
    }
    f.setPointSizeF(size);
    f.setWeight(weight);
    return f;
}
