#pragma once

#include "views/common/DestinationScreen.h"

#include <QDialog>
#include <QPointer>

class QPushButton;

// The About screen: name, version, a line on what the application is, the copyright, and
// the buttons for the security scopes sheet, the import of the built-in configuration
// (when that feature is part of the build), the ToolSDK installer and the privacy text.
class AboutView : public DestinationScreen {
    Q_OBJECT

public:
    explicit AboutView(QWidget *parent = nullptr);

    static QString descriptionText();
    static QString copyrightText();
    static QString privacyText();

    QPushButton *securityScopesButton() const { return m_scopes; }
    QPushButton *importButton() const { return m_import; }
    QPushButton *privacyButton() const { return m_privacy; }
    QPushButton *installToolSdkButton() const { return m_installSdk; }

    // The sheets the buttons open; the open one, if any.
    QDialog *openSecurityScopesSheet();
    QDialog *openPrivacySheet();
    QDialog *openToolSdkInstaller();
    QDialog *sheet() const { return m_sheet; }

    void screenDidAppear() override;

private:
    void updateImportButton();

    QPushButton *m_scopes;
    QPushButton *m_import;
    QPushButton *m_privacy;
    QPushButton *m_installSdk;
    QPointer<QDialog> m_sheet;
};
