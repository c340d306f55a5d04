#pragma once

#include "app/security/OpenPanelPresenter.h"
#include "views/common/FileDialogs.h"

// The panels as QFileDialog shows them, window-modal over their parent. Also the open
// panel of the security scopes, which may take a file or a folder in one panel.
class QtFileDialogs : public FileDialogs, public OpenPanelPresenter {
public:
    static QtFileDialogs *instance();

    void chooseSaveFile(QWidget *parent, const SaveRequest &request, Completion completion) override;
    void chooseFolder(QWidget *parent, const FolderRequest &request, Completion completion) override;
    void present(const OpenPanelRequest &request, std::function<void(const QUrl &chosen)> completion) override;
};
