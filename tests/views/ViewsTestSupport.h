#pragma once

#include "app/MenuDestination.h"
#include "app/security/OpenPanelPresenter.h"
#include "views/common/FileDialogs.h"

#include <QMessageBox>
#include <QObject>
#include <QUrl>
#include <QStringList>
#include <optional>

class AppMainWindow;

namespace ViewsTestSupport {

// A shown main window whose launch has finished and which shows a destination.
AppMainWindow *launchedWindow(std::optional<MenuDestination> destination = std::nullopt);
// Closes and deletes every top-level widget.
void closeAllWindows();
// The message box on screen, if any.
QMessageBox *openMessageBox();
// The widgets of root with one of these object names, in the order Tab walks them.
QStringList focusOrder(QWidget *root, const QStringList &names);

// Stands in for the browser: QDesktopServices hands it the URLs it would open.
class UrlCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public slots:
    void open(const QUrl &url) { urls.append(url); }
};

// Answers the open panel at once with a chosen location (empty cancels) and keeps the requests.
class FakeOpenPanel : public OpenPanelPresenter {
public:
    QUrl answer;
    QList<OpenPanelRequest> requests;
    void present(const OpenPanelRequest &request, std::function<void(const QUrl &)> completion) override
    {
        requests.append(request);
        completion(answer);
    }
};

// Answers the save and folder panels without showing them and records what was asked.
class FakeFileDialogs : public FileDialogs {
public:
    FakeFileDialogs() { FileDialogs::setCurrent(this); }
    ~FakeFileDialogs() override { FileDialogs::setCurrent(nullptr); }

    QString answer;  // the path the "user" picks; empty cancels
    QList<SaveRequest> saveRequests;
    QList<FolderRequest> folderRequests;

    void chooseSaveFile(QWidget *, const SaveRequest &request, Completion completion) override
    {
        saveRequests.append(request);
        completion(answer);
    }
    void chooseFolder(QWidget *, const FolderRequest &request, Completion completion) override
    {
        folderRequests.append(request);
        completion(answer);
    }
};

}  // namespace ViewsTestSupport
