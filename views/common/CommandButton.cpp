#include "views/common/CommandButton.h"

CommandButton::CommandButton(const QString &objectName, const QString &text, const QKeySequence &keys, QWidget *parent)
    : QPushButton(text + QLatin1Char(' ') + keys.toString(QKeySequence::NativeText), parent)
{
    setObjectName(objectName);
    setShortcut(keys);
    setAutoDefault(false);
}
