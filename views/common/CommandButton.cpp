#include "views/common/CommandButton.h"

CommandButton::CommandButton(const QString &objectName, const QString &text, const QKeySequence &keys, QWidget *parent)
    : QPushButton(label(text, keys), parent)
{
    setObjectName(objectName);
    setShortcut(keys);
    setAutoDefault(false);
}

QString CommandButton::label(const QString &text, const QKeySequence &keys)
{
    return text + QLatin1Char(' ') + keys.toString(QKeySequence::NativeText);
}
