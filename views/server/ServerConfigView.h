#pragma once

#include "views/common/DestinationScreen.h"

class LogPaneView;
class QCheckBox;
class QLabel;
class QLayout;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QSplitter;
class ServerConfigController;
class SettingsManager;

// The server screen: the fields of the server's row, the bind toggle, the status line,
// the address clients use, who may call the server (the bearer token with Copy and Renew,
// the token requirement on all interfaces, the web origins allowed), Start, Stop, Save and
// Revert, and below a split the log. The height of the log pane is kept under
// "serverView.VSplitViewPos".
class ServerConfigView : public DestinationScreen {
    Q_OBJECT

public:
    static inline const QString splitKey = QStringLiteral("serverView.VSplitViewPos");
    static constexpr double defaultLogHeight = 200;
    // The port shown while no row exists.
    static constexpr int fallbackPort = 8080;

    explicit ServerConfigView(ServerConfigController *controller, QWidget *parent = nullptr);

    AbstractController *activeController() const override;
    void screenDidAppear() override;

    ServerConfigController *controller() const { return m_controller; }
    LogPaneView *logPane() const { return m_log; }
    QPushButton *startButton() const { return m_start; }
    QPushButton *stopButton() const { return m_stop; }
    QPushButton *saveButton() const { return m_save; }
    QPushButton *revertButton() const { return m_revert; }
    // Shown while the running server serves an older configuration, with "Apply and restart".
    QWidget *outdatedBanner() const { return m_outdated; }
    QPushButton *applyAndRestartButton() const { return m_applyAndRestart; }
    QLineEdit *portField() const { return m_port; }
    QCheckBox *listenAllToggle() const { return m_listenAll; }
    QLabel *statusLabel() const { return m_status; }
    // Shown while the AI Chat's integrations limit the served tools, with "Serve All Tools".
    QWidget *toolLimitNotice() const { return m_toolLimit; }
    QLabel *toolLimitLabel() const { return m_toolLimitText; }
    QPushButton *serveAllToolsButton() const { return m_serveAll; }
    QLabel *addressLabel() const { return m_address; }
    QSplitter *splitter() const { return m_split; }
    QLabel *tokenLabel() const { return m_token; }
    QLabel *tokenHint() const { return m_tokenHint; }
    QPushButton *copyTokenButton() const { return m_copyToken; }
    QPushButton *renewTokenButton() const { return m_renewToken; }
    QCheckBox *requireTokenToggle() const { return m_requireToken; }
    QCheckBox *tokenOnLoopbackToggle() const { return m_tokenOnLoopback; }
    QPushButton *copyClientConfigurationButton() const { return m_copyConfiguration; }
    QLineEdit *allowedOriginsField() const { return m_origins; }

    // "http://127.0.0.1:8888", or "http://0.0.0.0:8888" when listening on all interfaces.
    QString clientAddress() const;
    // The address others reach this machine at while the server listens on all interfaces:
    // the first IPv4 address of an interface that is up and not loopback, else 127.0.0.1.
    static QString reachableHost();
    void copyAddress();
    void copyToken();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void confirmCopy(QPushButton *button);
    // The screen's areas, top to bottom, and what their controls do.
    QLayout *buildForm();
    QLayout *buildStatusRow();
    QLayout *buildAddressRow();
    QLayout *buildAccessRows();
    QLayout *buildButtons();
    void layOut(QLayout *form, QLayout *statusRow, QLayout *addressRow, QLayout *access, QLayout *buttons);
    void bindFields();
    void bindAccess();
    void bindButtons();

    void refresh();
    void refreshFields();
    void commitPort();
    void commitOrigins();
    void refreshAccess();
    void applySplit();

    ServerConfigController *m_controller;
    SettingsManager *m_splitSettings;
    QLineEdit *m_name;
    QLineEdit *m_title;
    QLineEdit *m_version;
    QLineEdit *m_port;
    QPlainTextEdit *m_instructions;
    QCheckBox *m_listenAll;
    QLabel *m_statusDot;
    QLabel *m_status;
    QWidget *m_toolLimit;
    QLabel *m_toolLimitText;
    QPushButton *m_serveAll;
    QLabel *m_address;
    QPushButton *m_copy;
    QPushButton *m_copyConfiguration;
    QLabel *m_token;
    QLabel *m_tokenHint;
    QPushButton *m_copyToken;
    QPushButton *m_renewToken;
    QCheckBox *m_requireToken;
    QCheckBox *m_tokenOnLoopback;
    QLineEdit *m_origins;
    QPushButton *m_start;
    QPushButton *m_stop;
    QPushButton *m_save;
    QPushButton *m_revert;
    QWidget *m_outdated;
    QPushButton *m_applyAndRestart;
    QSplitter *m_split;
    LogPaneView *m_log;
    QString m_startToolTip;
    bool m_filling = false;
    bool m_splitApplied = false;
};
