#pragma once

#include "views/common/DestinationScreen.h"

#include <QHash>
#include <QUuid>
#include <memory>

class AppearanceSettings;
class ChatInputField;
class ChatViewModel;
class HistoryPanel;
class MCPIntegrationManager;
class MessageBubble;
class QComboBox;
class QGroupBox;
class QHBoxLayout;
class QLayout;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QScrollArea;
class ServerConfigController;
class QVBoxLayout;

// The AI Chat destination: the provider, the connection and the model row; the transcript
// with its search; the download section of LM Studio; the attachments, the input and the
// status line. File ▸ Save and Save As write the chat to a JSON file.
class ChatView : public DestinationScreen {
    Q_OBJECT

public:
    // model: the chat's state; made (with the integrations over the app's store and server)
    // when null.
    // Without a model the view makes its own over the application's integrations (which
    // may be null: then the chat offers none). The server is the application's.
    ChatView(ChatViewModel *model, ServerConfigController *server, MCPIntegrationManager *integrations = nullptr,
             QWidget *parent = nullptr);
    ~ChatView() override;

    // Whether the screen starts the MCP server when it comes to the front (off in tests).
    static inline bool startsServerOnAppear = true;

    ChatViewModel *model() const { return m_model; }
    ChatInputField *input() const { return m_input; }
    QLabel *statusLine() const { return m_status; }
    QPushButton *sendButton() const { return m_send; }
    QLineEdit *searchField() const { return m_search; }
    HistoryPanel *historyPanel() const { return m_historyPanel; }
    QLabel *searchPosition() const { return m_searchPosition; }
    MessageBubble *bubble(const QUuid &id) const { return m_bubbles.value(id); }
    QList<MessageBubble *> bubbles() const;

    bool handlesCommand(MenuCommand command) const override;
    void performCommand(MenuCommand command) override;
    void screenDidAppear() override;

    // "Export entire chat" to a path, and "Import chat" from one; false (with the alert
    // "Import failed.") when the file is refused.
    bool exportTo(const QString &path);
    bool importFrom(const QString &path);
    void stepSearch(int direction);

private:
    // The screen's areas, top to bottom, each with what its controls do.
    ChatViewModel *makeOwnModel();
    QLayout *buildConnectionRow();
    QLayout *buildTranscriptToolbar();
    void buildTranscript();
    void buildDownloadSection();
    QLayout *buildAttachmentRow();
    QLayout *buildInputRow();
    void layOut(QLayout *connection, QLayout *toolbar, QLayout *attachmentRow, QLayout *inputRow);
    void bindModel();

    void syncTranscript();
    void refresh();
    void refreshInput();
    void refreshAttachments();
    void showDropMenu(const QString &text, const std::optional<QString> &path, const QPoint &at);
    void openConnectionSettings();
    void exportChat();
    void importChat();

    ServerConfigController *m_server;
    MCPIntegrationManager *m_integrations;
    ChatViewModel *m_model;
    AppearanceSettings *m_appearance;
    QComboBox *m_provider;
    QPushButton *m_connect;
    QComboBox *m_models;
    QPushButton *m_loadModel;
    QPushButton *m_chatSettings;
    QPushButton *m_serverButton;
    QLineEdit *m_search;
    QLabel *m_searchPosition;
    QList<QUuid> m_results;
    int m_resultIndex = 0;
    QScrollArea *m_scroll;
    HistoryPanel *m_historyPanel;
    QPushButton *m_historyButton;
    QVBoxLayout *m_transcript;
    QHash<QUuid, MessageBubble *> m_bubbles;
    QLabel *m_typing;
    QProgressBar *m_loadProgress;
    QProgressBar *m_promptProgress;
    QGroupBox *m_download;
    QLineEdit *m_downloadName;
    QLineEdit *m_jobID;
    QHBoxLayout *m_attachments;
    ChatInputField *m_input;
    QPushButton *m_send;
    QLabel *m_status;
    bool m_refreshing = false;
    bool m_following = true;
};
