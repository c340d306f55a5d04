#pragma once

#include <QKeySequence>
#include <QPushButton>

// A screen's command button: its shortcut works while the screen is shown and stands in
// the label after the text ("Start server Ctrl+R"), as the button's own reminder.
class CommandButton : public QPushButton {
    Q_OBJECT

public:
    CommandButton(const QString &objectName, const QString &text, const QKeySequence &keys, QWidget *parent = nullptr);

    // "Delete tag Ctrl+D": the text and the keys as this desktop writes them.
    static QString label(const QString &text, const QKeySequence &keys);
};
