#pragma once

#include "base/AppError.h"

#include <QPointer>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <functional>
#include <optional>

class BookmarkController;
class OpenPanelPresenter;
struct OpenPanelRequest;

// Asks the user for a location with the open panel and keeps the answer among the user's
// granted locations: stored as a bookmark and opened at once, then handed to the callback.
//
// The panel is the window system's, one per process: the desktop installs its presenter at
// start-up (tests install their own). Without one a request fails with an error. Main thread.
class AccessPanel {
public:
    // The granted location, or an error, or neither when the user cancelled.
    using Callback = std::function<void(const QUrl &url, const std::optional<AppError> &error)>;

    // Not owned; nullptr removes it.
    static void setPresenter(OpenPanelPresenter *presenter);
    static OpenPanelPresenter *presenter();

    // Keeps the chosen locations in these bookmarks, or in the shared ones.
    explicit AccessPanel(BookmarkController *bookmarks = nullptr);

    // The three forms: any file or folder for the application; a plug-in file; a named
    // file from a given folder. An empty start folder is the home folder.
    void requestAccess(Callback callback, const QString &startDirectory = QString()) const;
    void requestPluginAccess(Callback callback, const QString &startDirectory = QString()) const;
    void requestAccess(const QString &fileName, const QString &directory, const QString &prompt, bool canChooseFiles,
                       bool canChooseDirectories, const QStringList &allowedExtensions, Callback callback) const;

private:
    void present(const OpenPanelRequest &request, Callback callback) const;

    QPointer<BookmarkController> m_bookmarks;
};
