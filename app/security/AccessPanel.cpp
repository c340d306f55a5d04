#include "app/security/AccessPanel.h"

#include "app/security/OpenPanelPresenter.h"
#include "app/security/OpenPanelRequest.h"
#include "tools/security/BookmarkController.h"

#include <QDir>
#include <atomic>

namespace {

std::atomic<OpenPanelPresenter *> g_presenter{nullptr};

}  // namespace

void AccessPanel::setPresenter(OpenPanelPresenter *presenter)
{
    g_presenter.store(presenter);
}

OpenPanelPresenter *AccessPanel::presenter()
{
    return g_presenter.load();
}

AccessPanel::AccessPanel(BookmarkController *bookmarks)
    : m_bookmarks(bookmarks ? bookmarks : BookmarkController::shared())
{
}

void AccessPanel::requestAccess(Callback callback, const QString &startDirectory) const
{
    OpenPanelRequest request;
    request.message = QStringLiteral("Select a file and click on 'Grant Access'");
    request.canChooseFiles = true;
    request.canChooseDirectories = true;
    request.directory = startDirectory;
    present(request, std::move(callback));
}

void AccessPanel::requestPluginAccess(Callback callback, const QString &startDirectory) const
{
    OpenPanelRequest request;
    // Plug-in libraries are shared objects here; the two bundle forms are folders.
    request.message = QStringLiteral("Select a plugin file (.so, .bundle, or .plugin)");
    request.canChooseFiles = true;
    request.canChooseDirectories = false;
    // The dialog's button names what happens: the library is added, no access is granted.
    request.prompt = QStringLiteral("Add Plugin");
    request.allowedExtensions = {QStringLiteral("so"), QStringLiteral("bundle"), QStringLiteral("plugin")};
    request.treatsPackagesAsFiles = true;
    request.directory = startDirectory;
    present(request, std::move(callback));
}

void AccessPanel::requestAccess(const QString &fileName, const QString &directory, const QString &prompt,
                                bool canChooseFiles, bool canChooseDirectories, const QStringList &allowedExtensions,
                                Callback callback) const
{
    OpenPanelRequest request;
    if (!prompt.isEmpty())
        request.prompt = prompt;
    request.message = QStringLiteral("Select a file and click on '") + request.prompt + QStringLiteral("'");
    request.canChooseFiles = canChooseFiles;
    request.canChooseDirectories = canChooseDirectories;
    request.allowedExtensions = allowedExtensions;
    request.directory = directory;
    request.fileName = fileName;
    present(request, std::move(callback));
}

void AccessPanel::present(const OpenPanelRequest &panelRequest, Callback callback) const
{
    OpenPanelRequest request = panelRequest;
    if (request.directory.isEmpty())
        request.directory = QDir::homePath();
    OpenPanelPresenter *shown = presenter();
    if (!shown) {
        if (callback)
            callback(QUrl(), AppError{QStringLiteral("AccessPanel"), 5,
                                      QStringLiteral("No file dialog is available to ask for access.")});
        return;
    }
    QPointer<BookmarkController> bookmarks = m_bookmarks;
    shown->present(request, [bookmarks, callback = std::move(callback)](const QUrl &chosen) {
        if (chosen.isEmpty() || !bookmarks) {
            if (callback)
                callback(QUrl(), std::nullopt);
            return;
        }
        AppError error;
        if (!bookmarks->addBookmark(chosen, BookmarkController::lastPathComponent(chosen), &error)) {
            if (callback)
                callback(QUrl(), error);
            return;
        }
        bookmarks->beginAccess(chosen);
        if (callback)
            callback(chosen, std::nullopt);
    });
}
