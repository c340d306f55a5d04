#include "views/server/ServerConfigView.h"

#include "app/config/ClientConfiguration.h"
#include "app/SettingsManager.h"
#include "store/ServerAccessSettings.h"
#include "store/ServerConfig.h"
#include "app/config/ServerConfigController.h"
#include "views/common/AlertPresenter.h"
#include "views/common/CommandButton.h"
#include "views/log/LogPaneView.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QTimer>
#include <QFontDatabase>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QSplitter>
#include <QVBoxLayout>


namespace {

QString fieldText(const std::optional<QString> &value) { return value.value_or(QString()); }

}  // namespace

ServerConfigView::ServerConfigView(ServerConfigController *controller, QWidget *parent)
    : DestinationScreen(parent),
      m_controller(controller),
      m_splitSettings(new SettingsManager(splitKey, defaultLogHeight, this))
{
    setObjectName(QStringLiteral("serverConfigView"));
    // Made top to bottom, so that Tab walks the screen in that order.
    QLayout *form = buildForm();
    QLayout *statusRow = buildStatusRow();
    QLayout *addressRow = buildAddressRow();
    QLayout *access = buildAccessRows();
    QLayout *buttons = buildButtons();
    layOut(form, statusRow, addressRow, access, buttons);
    bindFields();
    bindAccess();
    bindButtons();

    connect(m_controller, &AbstractController::changed, this, &ServerConfigView::refresh);
    connect(m_controller, &ServerConfigController::serverConfigChanged, this, &ServerConfigView::refreshFields);
    connect(m_split, &QSplitter::splitterMoved, this, [this] {
        if (m_splitApplied)
            m_splitSettings->saveSplitter(m_log->height());
    });
    AlertPresenter::bind(m_controller, this);

    refreshFields();
    refresh();
    refreshAccess();
}

QLayout *ServerConfigView::buildForm()
{
    auto makeField = [this](const char *name, const QString &placeholder) {
        auto *field = new QLineEdit(this);
        field->setObjectName(QString::fromLatin1(name));
        field->setPlaceholderText(placeholder);
        return field;
    };
    m_name = makeField("serverName", QStringLiteral("Kelvara Server"));
    m_title = makeField("serverTitle", QStringLiteral("Shown to clients"));
    m_version = makeField("serverVersion", QStringLiteral("1.0.0"));
    m_version->setMaximumWidth(160);
    m_port = makeField("port", QString());
    m_port->setMaximumWidth(100);
    m_port->setToolTip(QStringLiteral("A number up to 32767"));
    m_instructions = new QPlainTextEdit(this);
    m_instructions->setObjectName(QStringLiteral("instructions"));
    m_instructions->setPlaceholderText(QStringLiteral("How clients should use this server"));
    m_instructions->setTabChangesFocus(true);
    m_instructions->setFixedHeight(QFontMetrics(m_instructions->font()).lineSpacing() * 3 + 14);
    m_listenAll = new QCheckBox(this);
    m_listenAll->setObjectName(QStringLiteral("listenAllInterfaces"));
    m_listenAll->setToolTip(QStringLiteral("Accept connections from other machines, not only from this one"));

    auto *portRow = new QHBoxLayout;
    portRow->setSpacing(18);
    portRow->addWidget(m_port);
    auto *listenLabel = new QLabel(QStringLiteral("Listen all interfaces:"), this);
    listenLabel->setBuddy(m_listenAll);
    portRow->addWidget(listenLabel);
    portRow->addWidget(m_listenAll);
    portRow->addStretch();

    auto *form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form->setHorizontalSpacing(12);
    form->setVerticalSpacing(8);
    form->addRow(QStringLiteral("Server Name:"), m_name);
    form->addRow(QStringLiteral("Server Title:"), m_title);
    form->addRow(QStringLiteral("Server Version:"), m_version);
    form->addRow(QStringLiteral("Listening Port:"), portRow);
    form->addRow(QStringLiteral("Instructions:"), m_instructions);
    return form;
}

QLayout *ServerConfigView::buildStatusRow()
{
    m_statusDot = new QLabel(this);
    m_statusDot->setFixedSize(10, 10);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("serverStatus"));
    QFont statusFont = m_status->font();
    statusFont.setBold(true);
    m_status->setFont(statusFont);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *row = new QHBoxLayout;
    row->setSpacing(8);
    row->addWidget(m_statusDot);
    row->addWidget(m_status, 1);

    // What the AI Chat's integrations leave of the tools, for every client of the server.
    m_toolLimit = new QWidget(this);
    m_toolLimit->setObjectName(QStringLiteral("toolLimitNotice"));
    m_toolLimitText = new QLabel(m_toolLimit);
    m_toolLimitText->setObjectName(QStringLiteral("toolLimitText"));
    m_toolLimitText->setWordWrap(true);
    m_serveAll = new QPushButton(QStringLiteral("Serve All Tools"), m_toolLimit);
    m_serveAll->setObjectName(QStringLiteral("serveAllToolsButton"));
    m_serveAll->setToolTip(QStringLiteral("Switch on every internal tool, so the server serves all of them to every client."));
    auto *limitRow = new QHBoxLayout(m_toolLimit);
    limitRow->setContentsMargins(18, 0, 0, 0);
    limitRow->addWidget(m_toolLimitText, 1);
    limitRow->addWidget(m_serveAll);
    connect(m_serveAll, &QPushButton::clicked, m_controller, &ServerConfigController::serveAllTools);

    auto *rows = new QVBoxLayout;
    rows->setSpacing(4);
    rows->addLayout(row);
    rows->addWidget(m_toolLimit);
    return rows;
}

QLayout *ServerConfigView::buildAddressRow()
{
    auto *caption = new QLabel(QStringLiteral("Client address:"), this);
    m_address = new QLabel(this);
    m_address->setObjectName(QStringLiteral("clientAddress"));
    m_address->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_address->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_copy = new QPushButton(QStringLiteral("Copy to clipboard"), this);
    m_copy->setObjectName(QStringLiteral("copyAddressButton"));
    m_copy->setAutoDefault(false);
    auto *row = new QHBoxLayout;
    row->setSpacing(8);
    row->addWidget(caption);
    row->addWidget(m_address);
    row->addWidget(m_copy);
    m_copyConfiguration = new QPushButton(QStringLiteral("Copy client configuration"), this);
    m_copyConfiguration->setObjectName(QStringLiteral("copyClientConfigurationButton"));
    m_copyConfiguration->setAutoDefault(false);
    m_copyConfiguration->setToolTip(QStringLiteral("The address and, while it is asked for, the token, as MCP clients "
                                                   "take them for an HTTP server"));
    row->addWidget(m_copyConfiguration);
    row->addStretch();
    return row;
}

QLayout *ServerConfigView::buildAccessRows()
{
    // Who may call: the token beside the address, the requirement, the origins of web pages.
    m_token = new QLabel(this);
    m_token->setObjectName(QStringLiteral("accessToken"));
    m_token->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_token->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_copyToken = new QPushButton(QStringLiteral("Copy"), this);
    m_copyToken->setObjectName(QStringLiteral("copyTokenButton"));
    m_copyToken->setAutoDefault(false);
    m_renewToken = new QPushButton(QStringLiteral("Renew"), this);
    m_renewToken->setObjectName(QStringLiteral("renewTokenButton"));
    m_renewToken->setAutoDefault(false);
    m_renewToken->setToolTip(QStringLiteral("Make a new token; clients with the old one are refused from the next start"));
    auto *tokenRow = new QHBoxLayout;
    tokenRow->setSpacing(8);
    tokenRow->addWidget(new QLabel(QStringLiteral("Token:"), this));
    tokenRow->addWidget(m_token);
    tokenRow->addWidget(m_copyToken);
    tokenRow->addWidget(m_renewToken);
    tokenRow->addStretch();
    m_tokenHint = new QLabel(this);
    m_tokenHint->setObjectName(QStringLiteral("tokenHint"));
    m_tokenHint->setWordWrap(true);
    m_requireToken = new QCheckBox(QStringLiteral("Require the token when listening on all interfaces"), this);
    m_requireToken->setObjectName(QStringLiteral("requireTokenToggle"));
    m_tokenOnLoopback = new QCheckBox(QStringLiteral("Require it on this computer too"), this);
    m_tokenOnLoopback->setObjectName(QStringLiteral("tokenOnLoopbackToggle"));
    m_tokenOnLoopback->setToolTip(QStringLiteral("Other users and programs of this computer can reach a server on "
                                                 "127.0.0.1; the token keeps them out"));
    auto *requirementRow = new QHBoxLayout;
    requirementRow->setSpacing(16);
    requirementRow->addWidget(m_requireToken);
    requirementRow->addWidget(m_tokenOnLoopback);
    requirementRow->addStretch();
    m_origins = new QLineEdit(this);
    m_origins->setObjectName(QStringLiteral("allowedOriginsField"));
    m_origins->setPlaceholderText(QStringLiteral("https://app.example:3000, …"));
    m_origins->setToolTip(QStringLiteral("Web pages of these origins may call the server, besides pages on localhost. "
                                         "Separate them with commas; * allows every page."));
    auto *originsRow = new QHBoxLayout;
    originsRow->setSpacing(8);
    originsRow->addWidget(new QLabel(QStringLiteral("Allowed web origins:"), this));
    originsRow->addWidget(m_origins, 1);

    // A column of its own: its spacing and margins are the screen's, as if its rows stood there.
    auto *column = new QVBoxLayout;
    column->addLayout(tokenRow);
    column->addWidget(m_tokenHint);
    column->addLayout(requirementRow);
    column->addLayout(originsRow);
    return column;
}

QLayout *ServerConfigView::buildButtons()
{
    m_start = new CommandButton(QStringLiteral("startServerButton"), QStringLiteral("Start server"),
                                QKeySequence(Qt::CTRL | Qt::Key_R), this);
    m_stop = new CommandButton(QStringLiteral("stopServerButton"), QStringLiteral("Stop server"),
                               QKeySequence(Qt::CTRL | Qt::Key_X), this);
    m_save = new CommandButton(QStringLiteral("saveChangesButton"), QStringLiteral("Save changes"),
                               QKeySequence(Qt::CTRL | Qt::Key_S), this);
    m_revert = new CommandButton(QStringLiteral("revertChangesButton"), QStringLiteral("Revert changes"),
                                 QKeySequence(Qt::CTRL | Qt::Key_U), this);
    // The running server's configuration is older than the saved one: one action brings it up to date.
    m_outdated = new QFrame(this);
    m_outdated->setObjectName(QStringLiteral("outdatedBanner"));
    m_outdated->setStyleSheet(QStringLiteral("QFrame#outdatedBanner { background: #fff4d6; border: 1px solid #e0b64a; border-radius: 4px; }"
                                             "QFrame#outdatedBanner QLabel { color: #5c4200; }"));
    auto *outdatedText = new QLabel(ServerConfigController::outdatedText, m_outdated);
    outdatedText->setWordWrap(true);
    m_applyAndRestart = new QPushButton(ServerConfigController::applyAndRestartText, m_outdated);
    m_applyAndRestart->setObjectName(QStringLiteral("applyAndRestartButton"));
    auto *outdatedRow = new QHBoxLayout(m_outdated);
    outdatedRow->setContentsMargins(10, 4, 6, 4);
    outdatedRow->addWidget(outdatedText, 1);
    outdatedRow->addWidget(m_applyAndRestart);
    m_outdated->setVisible(false);

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addWidget(m_start);
    buttons->addWidget(m_stop);
    buttons->addStretch();
    buttons->addWidget(m_revert);
    buttons->addWidget(m_save);
    return buttons;
}

void ServerConfigView::layOut(QLayout *form, QLayout *statusRow, QLayout *addressRow, QLayout *access, QLayout *buttons)
{
    auto *top = new QWidget(this);
    auto *topLayout = new QVBoxLayout(top);
    topLayout->setContentsMargins(20, 18, 20, 12);
    topLayout->setSpacing(10);
    topLayout->addLayout(form);
    topLayout->addSpacing(4);
    topLayout->addLayout(statusRow);
    topLayout->addLayout(addressRow);
    topLayout->addLayout(access);
    topLayout->addStretch();
    auto *scroll = new QScrollArea(this);
    scroll->setWidget(top);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setMinimumHeight(80);
    // The commands stay in sight whatever the form's height: below the scrolled form, above
    // the log.
    auto *commands = new QWidget(this);
    commands->setObjectName(QStringLiteral("serverCommands"));
    auto *commandsLayout = new QVBoxLayout(commands);
    commandsLayout->setContentsMargins(20, 6, 20, 8);
    commandsLayout->addWidget(m_outdated);
    commandsLayout->addLayout(buttons);
    auto *upper = new QWidget(this);
    auto *upperLayout = new QVBoxLayout(upper);
    upperLayout->setContentsMargins(0, 0, 0, 0);
    upperLayout->setSpacing(0);
    upperLayout->addWidget(scroll, 1);
    upperLayout->addWidget(commands);

    m_log = new LogPaneView(m_controller->logController(), this);
    m_log->setMinimumHeight(90);

    m_split = new QSplitter(Qt::Vertical, this);
    m_split->setObjectName(QStringLiteral("serverSplit"));
    m_split->addWidget(upper);
    m_split->addWidget(m_log);
    m_split->setChildrenCollapsible(false);
    m_split->setStretchFactor(0, 1);
    m_split->setStretchFactor(1, 0);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_split);
}

void ServerConfigView::bindFields()
{
    // The screen writes the row's fields directly; the controller sees the context change.
    connect(m_name, &QLineEdit::textEdited, this, [this](const QString &text) {
        if (ServerConfig *row = m_controller->serverConfig())
            row->setServerName(text);
    });
    connect(m_title, &QLineEdit::textEdited, this, [this](const QString &text) {
        if (ServerConfig *row = m_controller->serverConfig())
            row->setServerTitle(text);
    });
    connect(m_version, &QLineEdit::textEdited, this, [this](const QString &text) {
        if (ServerConfig *row = m_controller->serverConfig())
            row->setServerVersion(text);
    });
    connect(m_instructions, &QPlainTextEdit::textChanged, this, [this] {
        if (m_filling)
            return;
        if (ServerConfig *row = m_controller->serverConfig())
            row->setInstructions(m_instructions->toPlainText());
    });
    connect(m_port, &QLineEdit::editingFinished, this, &ServerConfigView::commitPort);
    connect(m_listenAll, &QCheckBox::clicked, this, [this](bool checked) { m_controller->setListenAtAll(checked); });
}

void ServerConfigView::bindAccess()
{
    connect(m_copy, &QPushButton::clicked, this, &ServerConfigView::copyAddress);
    connect(m_copyConfiguration, &QPushButton::clicked, this, [this] {
        QClipboard *clipboard = QApplication::clipboard();
        clipboard->clear();
        clipboard->setText(m_controller->clientConfiguration());
        confirmCopy(m_copyConfiguration);
    });
    connect(m_copyToken, &QPushButton::clicked, this, &ServerConfigView::copyToken);
    connect(m_renewToken, &QPushButton::clicked, m_controller, &ServerConfigController::renewAccessToken);
    connect(m_requireToken, &QCheckBox::clicked, m_controller, &ServerConfigController::setRequireToken);
    connect(m_tokenOnLoopback, &QCheckBox::clicked, m_controller, &ServerConfigController::setTokenOnLoopback);
    connect(m_origins, &QLineEdit::editingFinished, this, &ServerConfigView::commitOrigins);
    connect(m_controller, &ServerConfigController::accessChanged, this, &ServerConfigView::refreshAccess);
}

void ServerConfigView::bindButtons()
{
    // The buttons only send on the controller's channels.
    connect(m_start, &QPushButton::clicked, this, [this] {
        commitPort();
        emit m_controller->startButtonTapped();
    });
    connect(m_stop, &QPushButton::clicked, m_controller, &ServerConfigController::stopButtonTapped);
    connect(m_save, &QPushButton::clicked, this, [this] {
        commitPort();
        emit m_controller->saveButtonTapped();
    });
    connect(m_revert, &QPushButton::clicked, m_controller, &ServerConfigController::revertButtonTapped);
    connect(m_applyAndRestart, &QPushButton::clicked, m_controller, &ServerConfigController::applyAndRestart);
}

AbstractController *ServerConfigView::activeController() const { return m_controller; }

void ServerConfigView::screenDidAppear()
{
    QMetaObject::invokeMethod(m_controller, [controller = m_controller] { controller->sync(); }, Qt::QueuedConnection);
}

void ServerConfigView::showEvent(QShowEvent *event)
{
    DestinationScreen::showEvent(event);
    applySplit();
}

void ServerConfigView::applySplit()
{
    if (m_splitApplied || m_split->height() <= 0)
        return;
    const int total = m_split->height() - m_split->handleWidth();
    const int logHeight = std::clamp(int(m_splitSettings->splitterPosition()), m_log->minimumHeight(), std::max(m_log->minimumHeight(), total - 120));
    m_split->setSizes({total - logHeight, logHeight});
    m_splitApplied = true;
}

QString ServerConfigView::clientAddress() const
{
    const ServerConfig *row = m_controller->serverConfig();
    const int port = row ? m_controller->listeningPort() : fallbackPort;
    const QString host = m_controller->listenAtAll() ? reachableHost() : QStringLiteral("127.0.0.1");
    return QStringLiteral("http://%1:%2").arg(host).arg(port);
}

QString ServerConfigView::reachableHost()
{
    return ClientConfiguration::reachableHost();
}

void ServerConfigView::copyAddress()
{
    QClipboard *clipboard = QApplication::clipboard();
    clipboard->clear();
    clipboard->setText(clientAddress());
    confirmCopy(m_copy);
}

void ServerConfigView::confirmCopy(QPushButton *button)
{
    // The button says what happened for a moment, then goes back to its word.
    const QString word = button->property("word").isValid() ? button->property("word").toString() : button->text();
    button->setProperty("word", word);
    button->setText(QStringLiteral("Copied"));
    QTimer::singleShot(1500, button, [button, word] { button->setText(word); });
}

void ServerConfigView::copyToken()
{
    QClipboard *clipboard = QApplication::clipboard();
    clipboard->clear();
    clipboard->setText(m_controller->accessToken());
    confirmCopy(m_copyToken);
}

void ServerConfigView::commitOrigins()
{
    const QString shown = m_controller->allowedOrigins().join(QStringLiteral(", "));
    if (m_origins->text().trimmed() == shown)
        return;
    // A refused entry leaves the stored list in the field; the alert names the entry.
    if (!m_controller->setAllowedOriginsText(m_origins->text()))
        m_origins->setText(shown);
}

void ServerConfigView::refreshAccess()
{
    m_token->setText(m_controller->accessToken());
    if (m_requireToken->isChecked() != m_controller->requireToken())
        m_requireToken->setChecked(m_controller->requireToken());
    if (m_tokenOnLoopback->isChecked() != m_controller->tokenOnLoopback())
        m_tokenOnLoopback->setChecked(m_controller->tokenOnLoopback());
    if (!m_origins->hasFocus())
        m_origins->setText(m_controller->allowedOrigins().join(QStringLiteral(", ")));
    if (m_controller->tokenRequired())
        m_tokenHint->setText(QStringLiteral("Clients send it as the header \"Authorization: Bearer <token>\"."));
    else if (m_controller->listenAtAll())
        m_tokenHint->setText(ServerAccessSettings::tokenOffWarning);
    else
        m_tokenHint->setText(ServerAccessSettings::loopbackTokenOffWarning);
}

void ServerConfigView::commitPort()
{
    const ServerConfig *row = m_controller->serverConfig();
    if (!row || m_port->text() == QString::number(row->port()))
        return;
    const QString text = m_port->text().trimmed();
    m_controller->setPort(text);
    // A refused text gives way to the stored port again; the alert says why.
    if (!ServerConfigController::parsePort(text))
        m_port->setText(QString::number(row->port()));
}

void ServerConfigView::refreshFields()
{
    const ServerConfig *row = m_controller->serverConfig();
    m_filling = true;
    auto fill = [](QLineEdit *field, const QString &text) {
        if (field->text() != text)
            field->setText(text);
    };
    fill(m_name, row ? fieldText(row->serverName()) : QString());
    fill(m_title, row ? fieldText(row->serverTitle()) : QString());
    fill(m_version, row ? fieldText(row->serverVersion()) : QString());
    if (!m_port->hasFocus())
        fill(m_port, row ? QString::number(row->port()) : QString());
    const QString instructions = row ? fieldText(row->instructions()) : QString();
    if (m_instructions->toPlainText() != instructions)
        m_instructions->setPlainText(instructions);
    m_filling = false;
    for (QWidget *field : {static_cast<QWidget *>(m_name), static_cast<QWidget *>(m_title),
                           static_cast<QWidget *>(m_version), static_cast<QWidget *>(m_port),
                           static_cast<QWidget *>(m_instructions)})
        field->setEnabled(row != nullptr);
}

void ServerConfigView::refresh()
{
    // A revert or sync changes the row's values under the fields.
    if (!m_controller->hasUnsavedChanges())
        refreshFields();
    const bool running = m_controller->isServerRunning();
    const QString status = m_controller->serverStatusMessage();
    m_status->setText(status);
    QColor dot(0x9a, 0xa5, 0xb1);
    if (running)
        dot = QColor(0x2e, 0xa0, 0x43);
    else if (status.startsWith(ServerConfigController::statusFailedPrefix))
        dot = QColor(0xd0, 0x3a, 0x2f);
    else if (m_controller->isStarting() || status == ServerConfigController::statusStopping)
        dot = QColor(0xe0, 0x9b, 0x1a);
    m_statusDot->setStyleSheet(QStringLiteral("background: %1; border-radius: 5px;").arg(dot.name()));

    if (m_listenAll->isChecked() != m_controller->listenAtAll())
        m_listenAll->setChecked(m_controller->listenAtAll());
    m_address->setText(clientAddress());

    m_start->setEnabled(m_controller->canStart());
    // A disabled Start says why; an enabled one keeps its own tooltip.
    if (m_startToolTip.isNull())
        m_startToolTip = m_start->toolTip().isNull() ? QStringLiteral("") : m_start->toolTip();
    const QString reason = m_controller->startDisabledReason();
    m_start->setToolTip(reason.isEmpty() ? m_startToolTip : reason);
    m_outdated->setVisible(m_controller->servesOutdatedConfiguration());
    const QString limit = m_controller->toolLimitNotice();
    m_toolLimitText->setText(limit);
    m_toolLimit->setVisible(!limit.isEmpty());
    m_stop->setEnabled(running);
    m_save->setEnabled(m_controller->canSave());
    m_revert->setEnabled(m_controller->hasUnsavedChanges());
    emit commandStateChanged();
}
