#pragma once

#include <QString>
#include <functional>

class QWidget;

// Every save and folder panel of the screens goes through this one interface, so that
// tests can answer the panels without a file dialog. The desktop uses QtFileDialogs.
class FileDialogs {
public:
    struct SaveRequest {
        QString title;
        QString suggestedName;
        QString directory;   // where the panel starts; the documents folder when empty
        QString nameFilter;  // e.g. "Text files (*.txt)"
    };
    struct FolderRequest {
        QString title;
        QString prompt;      // the confirm button
        QString directory;
    };
    // Called once with the chosen path, or with an empty text when the user cancelled.
    using Completion = std::function<void(const QString &path)>;

    virtual ~FileDialogs() = default;

    virtual void chooseSaveFile(QWidget *parent, const SaveRequest &request, Completion completion) = 0;
    virtual void chooseFolder(QWidget *parent, const FolderRequest &request, Completion completion) = 0;

    // The panels in use: what setCurrent installed, else the Qt dialogs.
    static FileDialogs *current();
    // Not owned; nullptr goes back to the Qt dialogs.
    static void setCurrent(FileDialogs *dialogs);
};
