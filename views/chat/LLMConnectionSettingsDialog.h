#pragma once

#include "chat/service/AIProvider.h"

#include <QDialog>

class ProviderConnection;
class InferenceFields;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;

// "LLM Connection Settings": drafts of the provider, its URL, token and system prompt, the
// temperature and the output limit with their quick choices. "Save & Close" stores them
// under the draft provider's keys (the live fields follow for the selected one); "Cancel"
// drops them.
class LLMConnectionSettingsDialog : public QDialog {
    Q_OBJECT

public:
    explicit LLMConnectionSettingsDialog(ProviderConnection *connection, QWidget *parent = nullptr);

    QComboBox *providerField() const { return m_provider; }
    QLineEdit *urlField() const { return m_url; }
    QLineEdit *tokenField() const { return m_token; }
    QPlainTextEdit *systemPromptField() const { return m_systemPrompt; }
    InferenceFields *inference() const { return m_inference; }
    void saveAndClose();

private:
    void loadDrafts(AIProviderID provider);
    void refreshNotes();

    ProviderConnection *m_connection;
    QComboBox *m_provider;
    QLineEdit *m_url;
    QLineEdit *m_token;
    QLabel *m_tokenNote;
    QPlainTextEdit *m_systemPrompt;
    QLabel *m_promptNote;
    InferenceFields *m_inference;
};
