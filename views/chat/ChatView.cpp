#include "views/chat/ChatView.h"

#include "views/common/LayoutMetrics.h"
#include "chat/appearance/AppearanceSettings.h"
#include "chat/appearance/HistoryModel.h"
#include "chat/integrations/MCPIntegrationManager.h"
#include "chat/session/ChatTranscriptFile.h"
#include "chat/session/ChatViewModel.h"
#include "app/config/ServerConfigController.h"
#include "views/chat/ChatInputField.h"
#include "views/chat/ChatSettingsWindow.h"
#include "views/chat/HistoryPanel.h"
#include "views/chat/LLMConnectionSettingsDialog.h"
#include "views/chat/MCPIntegrationListWindow.h"
#include "views/chat/MessageBubble.h"
#include "views/chat/ModelSettingsWindow.h"
#include "views/chat/PromptPickerSheet.h"
#include "views/common/OverflowRow.h"
#include "views/chat/ResourcePickerSheet.h"

#include <QComboBox>
#include <QFile>
#include <QFileDialog>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSaveFile>
#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QStandardPaths>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

QPushButton *namedButton(const char *name, const QString &text, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(QString::fromLatin1(name));
    return button;
}

}  // namespace

ChatView::ChatView(ChatViewModel *model, ServerConfigController *server, MCPIntegrationManager *integrations,
                   QWidget *parent)
    : DestinationScreen(parent), m_server(server), m_integrations(integrations)
{
    setObjectName(QStringLiteral("chatView"));
    m_model = model ? model : makeOwnModel();
    m_appearance = AppearanceSettings::shared();
    m_model->attachments().listenForBridgeRequests();

    // Made top to bottom, so that Tab walks the screen in that order.
    QLayout *connection = buildConnectionRow();
    QLayout *toolbar = buildTranscriptToolbar();
    buildTranscript();
    buildDownloadSection();
    QLayout *attachmentRow = buildAttachmentRow();
    QLayout *inputRow = buildInputRow();
    layOut(connection, toolbar, attachmentRow, inputRow);
    bindModel();
    syncTranscript();
    refresh();
}

ChatViewModel *ChatView::makeOwnModel()
{
    // The application's integrations: the local model calls the app's server's tools.
    return new ChatViewModel(m_integrations, this);
}

QLayout *ChatView::buildConnectionRow()
{
    m_provider = new QComboBox(this);
    m_provider->setObjectName(QStringLiteral("provider"));
    for (AIProviderID provider : AIProvider::allCases())
        m_provider->addItem(AIProvider::displayName(provider), int(provider));
    m_connect = namedButton("connect", QStringLiteral("Connect"), this);
    m_models = new QComboBox(this);
    m_models->setObjectName(QStringLiteral("models"));
    m_models->setMinimumWidth(200);
    m_loadModel = namedButton("loadModel", QStringLiteral("Load model"), this);
    QPushButton *refreshModels = namedButton("refreshModels", QStringLiteral("Refresh"), this);
    QPushButton *settings = namedButton("connectionSettings", QStringLiteral("Connection Settings…"), this);
    QPushButton *modelSettings = namedButton("modelSettings", QStringLiteral("Model Settings…"), this);
    // Shown in the transcript's toolbar; made here for its place in the tab order.
    m_chatSettings = namedButton("chatSettings", QStringLiteral("Chat Settings…"), this);
    QPushButton *integrations = namedButton("mcpIntegrations", QStringLiteral("MCP Integrations…"), this);
    integrations->setVisible(m_integrations != nullptr);
    // The settings fold into "⋯" where the row is short of room.
    auto *row = new OverflowRow(this);
    row->addFixed(m_provider);
    row->addFixed(m_connect);
    row->addFixed(new QLabel(QStringLiteral("Model:"), this));
    row->addFixed(m_models, 1);
    row->addFixed(m_loadModel);
    row->addFoldable(refreshModels);
    row->addFoldable(modelSettings);
    row->addFoldable(integrations);
    row->addFoldable(settings);

    ProviderConnection *link = &m_model->connection();
    connect(m_provider, &QComboBox::activated, this,
            [this, link] { link->selectProvider(AIProviderID(m_provider->currentData().toInt())); });
    connect(m_connect, &QPushButton::clicked, this, [link] {
        if (link->state() == ProviderConnection::State::connected)
            link->disconnect();
        else
            link->connect();
    });
    connect(m_models, &QComboBox::activated, this, [this, link] { link->setSelectedModel(m_models->currentData().toString()); });
    connect(m_loadModel, &QPushButton::clicked, this, [link] {
        const std::optional<AIModel> current = link->currentModel();
        if (current && current->isLoaded)
            link->unloadSelectedModel();
        else
            link->loadSelectedModel();
    });
    connect(refreshModels, &QPushButton::clicked, link, &ProviderConnection::refreshModels);
    connect(settings, &QPushButton::clicked, this, &ChatView::openConnectionSettings);
    connect(modelSettings, &QPushButton::clicked, this, [this, link] {
        ModelSettingsWindow window(link, this);
        window.exec();
    });
    connect(integrations, &QPushButton::clicked, this, [this] {
        MCPIntegrationListWindow window(m_integrations, this);
        window.exec();
    });
    return row;
}

QLayout *ChatView::buildTranscriptToolbar()
{
    m_search = new QLineEdit(this);
    m_search->setObjectName(QStringLiteral("transcriptSearch"));
    m_search->setPlaceholderText(QStringLiteral("Search in complete chat transcript"));
    m_search->setClearButtonEnabled(true);
    m_search->setMinimumWidth(220);  // room for its placeholder before the commands fold
    m_searchPosition = new QLabel(this);
    auto *previous = new QToolButton(this);
    previous->setArrowType(Qt::UpArrow);
    previous->setToolTip(QStringLiteral("Previous result"));
    auto *next = new QToolButton(this);
    next->setArrowType(Qt::DownArrow);
    next->setToolTip(QStringLiteral("Next result"));
    m_serverButton = namedButton("server", QStringLiteral("Start MCP server"), this);
    QPushButton *exportButton = namedButton("exportChat", QStringLiteral("Export entire chat"), this);
    QPushButton *importButton = namedButton("importChat", QStringLiteral("Import chat"), this);
    QPushButton *clear = namedButton("clearChat", QStringLiteral("Clear"), this);
    m_historyButton = namedButton("showHistory", QStringLiteral("History"), this);
    m_historyButton->setCheckable(true);
    m_historyButton->setToolTip(QStringLiteral("Show the prompts sent before"));
    clear->setToolTip(QStringLiteral("Clar current chat"));
    auto *toolbar = new OverflowRow(this);
    toolbar->addFixed(m_search, 1);
    toolbar->addFixed(m_searchPosition);
    toolbar->addFixed(previous);
    toolbar->addFixed(next);
    toolbar->addFixed(m_serverButton);
    toolbar->addFoldable(clear);
    toolbar->addFoldable(m_historyButton);
    toolbar->addFoldable(m_chatSettings);
    toolbar->addFoldable(exportButton);
    toolbar->addFoldable(importButton);

    connect(m_search, &QLineEdit::textChanged, this, [this](const QString &text) {
        m_results = m_model->session().searchTranscript(text);
        m_resultIndex = 0;
        stepSearch(0);
    });
    connect(previous, &QToolButton::clicked, this, [this] { stepSearch(-1); });
    connect(next, &QToolButton::clicked, this, [this] { stepSearch(1); });
    connect(m_serverButton, &QPushButton::clicked, this, [server = m_server] {
        if (server->isServerRunning())
            server->stop();
        else
            server->start();
    });
    connect(exportButton, &QPushButton::clicked, this, &ChatView::exportChat);
    connect(importButton, &QPushButton::clicked, this, &ChatView::importChat);
    connect(clear, &QPushButton::clicked, &m_model->session(), &ChatSession::clearChat);
    connect(m_chatSettings, &QPushButton::clicked, this, [this] {
        ChatSettingsWindow window(m_appearance, this);
        window.exec();
    });
    return toolbar;
}

void ChatView::buildTranscript()
{
    auto *list = new QWidget(this);
    m_transcript = new QVBoxLayout(list);
    m_transcript->setContentsMargins(4, 4, 4, 4);
    m_typing = new QLabel(QStringLiteral("…"), list);
    m_typing->setObjectName(QStringLiteral("typingIndicator"));
    m_transcript->addWidget(m_typing);
    m_transcript->addStretch();
    m_scroll = new QScrollArea(this);
    m_scroll->setObjectName(QStringLiteral("transcript"));
    m_scroll->setWidgetResizable(true);
    m_scroll->setWidget(list);
    m_loadProgress = new QProgressBar(this);
    m_loadProgress->setFormat(QStringLiteral("Loading model %p%"));
    m_promptProgress = new QProgressBar(this);
    m_promptProgress->setFormat(QStringLiteral("Processing prompt %p%"));
}

void ChatView::buildDownloadSection()
{
    m_download = new QGroupBox(QStringLiteral("Download (LM Studio only)"), this);
    m_download->setCheckable(true);
    m_download->setChecked(false);
    auto *downloadContent = new QWidget(m_download);
    downloadContent->setVisible(false);  // folded until the box is ticked
    auto *downloadBox = new QVBoxLayout(m_download);
    downloadBox->setContentsMargins(6, 0, 6, 0);
    downloadBox->addWidget(downloadContent);
    connect(m_download, &QGroupBox::toggled, downloadContent, &QWidget::setVisible);
    m_downloadName = new QLineEdit(downloadContent);
    m_downloadName->setPlaceholderText(QStringLiteral("Model name (e.g. llama-3...)"));
    m_jobID = new QLineEdit(downloadContent);
    m_jobID->setPlaceholderText(QStringLiteral("Job ID"));
    QPushButton *startDownload = namedButton("startDownload", QStringLiteral("Start Download"), downloadContent);
    QPushButton *checkStatus = namedButton("checkStatus", QStringLiteral("Check Status"), downloadContent);
    auto *downloadRow = new QHBoxLayout(downloadContent);
    downloadRow->setContentsMargins(0, 0, 0, 0);
    downloadRow->addWidget(m_downloadName, 2);
    downloadRow->addWidget(startDownload);
    downloadRow->addWidget(m_jobID, 1);
    downloadRow->addWidget(checkStatus);

    ProviderConnection *link = &m_model->connection();
    connect(startDownload, &QPushButton::clicked, this, [this, link] {
        link->setDownloadModelName(m_downloadName->text().trimmed());
        link->startDownload();
    });
    connect(checkStatus, &QPushButton::clicked, this, [this, link] {
        link->setDownloadJobID(m_jobID->text().trimmed());
        link->checkDownloadStatus();
    });
}

QLayout *ChatView::buildAttachmentRow()
{
    m_attachments = new QHBoxLayout;
    QPushButton *addFiles = namedButton("addFiles", QStringLiteral("Add files"), this);
    QPushButton *insertPrompt = namedButton("insertPrompt", QStringLiteral("Insert Prompt"), this);
    QPushButton *insertResource = namedButton("insertResource", QStringLiteral("Insert Resource"), this);
    auto *row = new QHBoxLayout;
    row->addLayout(m_attachments);
    row->addStretch();
    row->addWidget(insertPrompt);
    row->addWidget(insertResource);
    row->addWidget(addFiles);

    connect(addFiles, &QPushButton::clicked, this, [this] {
        for (const QString &path : QFileDialog::getOpenFileNames(this, QStringLiteral("Add files")))
            m_model->attachments().addFile(path);
    });
    auto insertPicked = [this](const QString &text) { m_model->insertPickedText(text); };
    connect(insertPrompt, &QPushButton::clicked, this, [this, insertPicked] {
        PromptPickerSheet sheet(m_server->context(), insertPicked, this);
        sheet.exec();
    });
    connect(insertResource, &QPushButton::clicked, this, [this, insertPicked] {
        ResourcePickerSheet sheet(m_server->context(), insertPicked, this);
        sheet.exec();
    });
    return row;
}

QLayout *ChatView::buildInputRow()
{
    m_input = new ChatInputField(this);
    m_input->setMaximumHeight(84);
    m_send = namedButton("send", QStringLiteral("Send"), this);
    auto *row = new QHBoxLayout;
    row->addWidget(m_input, 1);
    row->addWidget(m_send, 0, Qt::AlignBottom);

    connect(m_input, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_refreshing)
            m_model->setPrompt(m_input->toPlainText());
    });
    m_input->canSend = [this] { return m_model->canSend(); };
    m_input->onSend = [this] { m_model->sendPrompt(true); };
    connect(m_input, &ChatInputField::dropped, this, &ChatView::showDropMenu);
    connect(m_send, &QPushButton::clicked, this, [this] {
        if (m_model->status().isBusy())
            m_model->session().abort();
        else
            m_model->sendPrompt(true);
    });
    return row;
}

void ChatView::layOut(QLayout *connection, QLayout *toolbar, QLayout *attachmentRow, QLayout *inputRow)
{
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("chatStatus"));
    // The input history sits beside the transcript, shown by the toolbar's "History".
    m_historyPanel = new HistoryPanel(m_model->session().historyModel(), this);
    m_historyPanel->setFixedWidth(280);
    m_historyPanel->setVisible(false);
    connect(m_historyButton, &QPushButton::toggled, m_historyPanel, &QWidget::setVisible);
    connect(m_historyPanel, &HistoryPanel::promptChosen, m_model, &ChatViewModel::setPrompt);
    auto *middle = new QHBoxLayout;
    middle->addWidget(m_scroll, 1);
    middle->addWidget(m_historyPanel);
    auto *layout = new QVBoxLayout(this);
    LayoutMetrics::applyToScreen(layout);
    layout->addLayout(connection);
    layout->addLayout(toolbar);
    layout->addLayout(middle, 1);
    layout->addWidget(m_loadProgress);
    layout->addWidget(m_promptProgress);
    layout->addWidget(m_download);
    layout->addLayout(attachmentRow);
    layout->addLayout(inputRow);
    layout->addWidget(m_status);
}

void ChatView::bindModel()
{
    connect(m_model, &ChatViewModel::changed, this, &ChatView::refresh);
    connect(m_model, &ChatViewModel::promptChanged, this, &ChatView::refreshInput);
    connect(m_model, &ChatViewModel::transcriptReset, this, &ChatView::syncTranscript);
    connect(m_model, &ChatViewModel::messageChanged, this, [this](const QUuid &id) {
        MessageBubble *bubble = m_bubbles.value(id);
        const TranscriptMessage *message = m_model->session().message(id);
        if (!bubble || !message)
            return;
        bubble->update(*message);
    });
    // New fonts and colours: the bubbles are made again in the new style, the input restyled.
    m_input->applyAppearance(*m_appearance);
    connect(m_appearance, &AppearanceSettings::changed, this, [this] {
        qDeleteAll(m_bubbles);
        m_bubbles.clear();
        syncTranscript();
        m_input->applyAppearance(*m_appearance);
    });
    // The list follows a growing answer while it is scrolled to its end; scrolling up stops that.
    QScrollBar *bar = m_scroll->verticalScrollBar();
    connect(bar, &QScrollBar::valueChanged, this, [this, bar](int value) { m_following = value >= bar->maximum() - 4; });
    connect(bar, &QScrollBar::rangeChanged, this, [this, bar](int, int maximum) {
        if (m_following)
            bar->setValue(maximum);
    });
    // Each start applies the integrations (the server's controller does).
    connect(m_server, &AbstractController::changed, this, &ChatView::refresh);
}

ChatView::~ChatView() = default;

QList<MessageBubble *> ChatView::bubbles() const
{
    QList<MessageBubble *> ordered;
    for (const TranscriptMessage &message : m_model->session().transcript()) {
        if (MessageBubble *bubble = m_bubbles.value(message.id))
            ordered.append(bubble);
    }
    return ordered;
}

void ChatView::screenDidAppear()
{
    ServerConfigController *server = m_server;
    if (startsServerOnAppear && !server->isServerRunning() && !server->isStarting())
        server->start();
}

bool ChatView::handlesCommand(MenuCommand command) const
{
    return command == MenuCommand::Save || command == MenuCommand::SaveAs;
}

void ChatView::performCommand(MenuCommand command)
{
    if (command == MenuCommand::Save || command == MenuCommand::SaveAs)
        exportChat();
}

void ChatView::syncTranscript()
{
    // Bubbles of messages that are gone go; new ones come; the order is the transcript's.
    QSet<QUuid> ids;
    for (const TranscriptMessage &message : m_model->session().transcript())
        ids.insert(message.id);
    for (auto it = m_bubbles.begin(); it != m_bubbles.end();) {
        if (ids.contains(it.key())) {
            ++it;
            continue;
        }
        it.value()->deleteLater();
        it = m_bubbles.erase(it);
    }
    int position = 0;
    for (const TranscriptMessage &message : m_model->session().transcript()) {
        MessageBubble *bubble = m_bubbles.value(message.id);
        if (!bubble) {
            bubble = new MessageBubble(message, m_appearance, m_scroll->widget());
            m_bubbles.insert(message.id, bubble);
            connect(bubble, &MessageBubble::dropped, this, [this](const QString &text) {
                // Dropped on an answer: asked at once when the model is ready.
                if (!m_model->readyToAsk())
                    return;
                m_model->setPrompt(text);
                m_model->sendPrompt(true);
            });
        } else {
            bubble->update(message);
        }
        m_transcript->removeWidget(bubble);
        m_transcript->insertWidget(position++, bubble);
    }
    m_following = true;
    m_scroll->verticalScrollBar()->setValue(m_scroll->verticalScrollBar()->maximum());
}

void ChatView::refresh()
{
    m_refreshing = true;
    const ProviderConnection &link = m_model->connection();
    const ChatSession &session = m_model->session();
    const bool busy = m_model->status().isBusy();
    const bool connected = link.state() == ProviderConnection::State::connected;
    const bool lmStudio = link.selectedProvider() == AIProviderID::lmStudio;
    m_provider->setCurrentIndex(m_provider->findData(int(link.selectedProvider())));
    m_connect->setText(connected ? QStringLiteral("Disconnect") : QStringLiteral("Connect"));
    m_models->clear();
    for (const AIModel &model : link.models())
        m_models->addItem(model.isLoaded ? model.name + QStringLiteral(" ●") : model.name, model.id);
    m_models->setCurrentIndex(m_models->findData(link.selectedModel()));
    const std::optional<AIModel> current = link.currentModel();
    m_loadModel->setVisible(lmStudio);
    m_loadModel->setEnabled(connected && current && !busy);
    m_loadModel->setText(current && current->isLoaded ? QStringLiteral("Unload model") : QStringLiteral("Load model"));
    m_download->setVisible(lmStudio);
    if (m_jobID->text() != link.downloadJobID())
        m_jobID->setText(link.downloadJobID());
    m_serverButton->setText(m_server->isServerRunning() ? QStringLiteral("Stop MCP server")
                                                                           : QStringLiteral("Start MCP server"));
    m_typing->setVisible(busy);
    m_loadProgress->setVisible(session.modelLoadProgress().has_value());
    m_loadProgress->setValue(int(session.modelLoadProgress().value_or(0) * 100));
    m_promptProgress->setVisible(session.promptProcessingProgress().has_value());
    m_promptProgress->setValue(int(session.promptProcessingProgress().value_or(0) * 100));
    refreshInput();
    m_status->setText(m_model->status().text());
    refreshAttachments();
    m_refreshing = false;
}

void ChatView::refreshInput()
{
    // Writing the field from the model is no edit of the prompt.
    const bool refreshing = std::exchange(m_refreshing, true);
    if (m_input->toPlainText() != m_model->prompt())
        m_input->setPlainText(m_model->prompt());
    const bool busy = m_model->status().isBusy();
    m_send->setText(busy ? QStringLiteral("Stop") : QStringLiteral("Send"));
    m_send->setEnabled(busy || m_model->canSend());
    m_refreshing = refreshing;
}

void ChatView::refreshAttachments()
{
    while (QLayoutItem *item = m_attachments->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    for (const ChatAttachment &attachment : m_model->attachments().items()) {
        auto *chip = new QToolButton(this);
        chip->setText(attachment.label() + QStringLiteral("  ✕"));
        chip->setToolTip(attachment.path.value_or(attachment.text.value_or(QString())).left(400));
        const QUuid id = attachment.id;
        connect(chip, &QToolButton::clicked, this, [this, id] {
            QTimer::singleShot(0, m_model, [this, id] { m_model->attachments().remove(id); });
        });
        m_attachments->addWidget(chip);
    }
}

void ChatView::stepSearch(int direction)
{
    const int count = int(m_results.size());
    if (count == 0) {
        m_searchPosition->setText(m_search->text().isEmpty() ? QString() : QStringLiteral("0/0"));
        return;
    }
    m_resultIndex = ((m_resultIndex + direction) % count + count) % count;
    m_searchPosition->setText(QStringLiteral("%1/%2").arg(m_resultIndex + 1).arg(count));
    if (MessageBubble *bubble = m_bubbles.value(m_results.at(m_resultIndex)))
        m_scroll->ensureWidgetVisible(bubble, 0, m_scroll->viewport()->height() / 3);
}

void ChatView::showDropMenu(const QString &text, const std::optional<QString> &path, const QPoint &at)
{
    QMenu menu(this);
    menu.addAction(QStringLiteral("Insert Text"), this, [this, text] { m_model->insertDroppedText(text); });
    menu.addAction(QStringLiteral("Attach"), this, [this, text, path] { m_model->attachments().attachDropped(text, path); });
    menu.addAction(QStringLiteral("Cancel"));
    const QPoint offset(std::max(at.x() + 10, 96), std::max(at.y() + 10, 24));
    menu.exec(m_input->mapToGlobal(offset));
}

void ChatView::openConnectionSettings()
{
    LLMConnectionSettingsDialog dialog(&m_model->connection(), this);
    dialog.exec();
}

bool ChatView::exportTo(const QString &path)
{
    const std::optional<QByteArray> bytes = m_model->session().exportChat();
    if (!bytes)
        return false;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(*bytes) != bytes->size() || !file.commit()) {
        QMessageBox::warning(this, QStringLiteral("Export failed."), file.errorString());
        return false;
    }
    return true;
}

bool ChatView::importFrom(const QString &path)
{
    QFile file(path);
    QString error;
    if (!file.open(QIODevice::ReadOnly) || !m_model->session().importChat(file.readAll(), &error)) {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("Import failed."), QStringLiteral("Import failed."), QMessageBox::Ok, this);
        box.setObjectName(QStringLiteral("importFailed"));
        box.setInformativeText(error.isEmpty() ? file.errorString() : error);
        box.exec();
        return false;
    }
    return true;
}

void ChatView::exportChat()
{
    if (!m_model->session().exportChat())
        return;
    const QString path = QFileDialog::getSaveFileName(
        this, QStringLiteral("Export entire chat"),
        QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + u'/' + ChatTranscriptFile::suggestedFileName(),
        QStringLiteral("JSON files (*.json)"));
    if (!path.isEmpty())
        exportTo(path);
}

void ChatView::importChat()
{
    const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Import chat"), QDir::homePath(),
                                                      QStringLiteral("JSON files (*.json);;All files (*)"));
    if (!path.isEmpty())
        importFrom(path);
}
