#pragma once

#include <QString>

// What the window tells the user at start-up when the home folder cannot be read, and the
// one thing it offers to do about it: copy a command that restores access.
struct HomeFolderAccessNotice {
    QString title;
    QString text;
    QString confirmButton;  // copies `command` to the clipboard
    QString cancelButton;
    QString command;
};
