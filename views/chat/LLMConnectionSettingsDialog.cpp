#include "views/chat/LLMConnectionSettingsDialog.h"

#include "chat/session/ProviderConnection.h"
#include "views/chat/InferenceFields.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

LLMConnectionSettingsDialog::LLMConnectionSettingsDialog(ProviderConnection *connection, QWidget *parent)
    : QDialog(parent), m_connection(connection)
{
    setObjectName(QStringLiteral("connectionSettings"));
    setWindowTitle(QStringLiteral("LLM Connection Settings"));
    resize(480, 760);

    m_provider = new QComboBox(this);
    for (AIProviderID provider : AIProvider::allCases())
        m_provider->addItem(AIProvider::displayName(provider), int(provider));
    m_url = new QLineEdit(this);
    m_token = new QLineEdit(this);
    m_token->setEchoMode(QLineEdit::Password);
    auto *show = new QToolButton(this);
    show->setText(QStringLiteral("Show"));
    show->setCheckable(true);
    auto *clear = new QToolButton(this);
    clear->setText(QStringLiteral("Clear token"));
    auto *tokenRow = new QHBoxLayout;
    tokenRow->addWidget(m_token, 1);
    tokenRow->addWidget(show);
    tokenRow->addWidget(clear);
    m_tokenNote = new QLabel(this);
    m_systemPrompt = new QPlainTextEdit(this);
    m_promptNote = new QLabel(this);
    m_promptNote->setWordWrap(true);

    m_inference = new InferenceFields(m_connection->temperature(), m_connection->maxOutputTokens(), this);

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Provider:"), m_provider);
    form->addRow(QStringLiteral("Base URL:"), m_url);
    form->addRow(QStringLiteral("API key:"), tokenRow);
    form->addRow(QString(), m_tokenNote);
    form->addRow(QStringLiteral("System prompt:"), m_systemPrompt);
    form->addRow(QString(), m_promptNote);
    // The key is no secret to anyone who can read the user's files, and the user should know.
    auto *hint = new QLabel(QStringLiteral("Settings are stored locally in UserDefaults. The system prompt starts a new "
                                           "conversation thread on every connect.\nThey are stored in plain text, the "
                                           "API key included."),
                            this);
    hint->setObjectName(QStringLiteral("storageNote"));
    hint->setWordWrap(true);
    form->addRow(QString(), hint);
    form->addRow(m_inference);

    auto *buttons = new QDialogButtonBox(this);
    QPushButton *cancel = buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    cancel->setToolTip(QStringLiteral("Leave unchanged"));
    QPushButton *save = buttons->addButton(QStringLiteral("Save && Close"), QDialogButtonBox::AcceptRole);
    save->setToolTip(QStringLiteral("Update provider settings."));
    save->setDefault(true);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(QStringLiteral("<b>LLM Connection Settings</b>"), this));
    layout->addLayout(form, 1);
    layout->addWidget(buttons);

    connect(m_provider, &QComboBox::currentIndexChanged, this,
            [this] { loadDrafts(AIProviderID(m_provider->currentData().toInt())); });
    connect(show, &QToolButton::toggled, this,
            [this](bool visible) { m_token->setEchoMode(visible ? QLineEdit::Normal : QLineEdit::Password); });
    connect(clear, &QToolButton::clicked, m_token, &QLineEdit::clear);
    connect(m_token, &QLineEdit::textChanged, this, &LLMConnectionSettingsDialog::refreshNotes);
    connect(m_systemPrompt, &QPlainTextEdit::textChanged, this, &LLMConnectionSettingsDialog::refreshNotes);
    connect(buttons, &QDialogButtonBox::accepted, this, &LLMConnectionSettingsDialog::saveAndClose);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    m_provider->setCurrentIndex(m_provider->findData(int(m_connection->selectedProvider())));
    loadDrafts(m_connection->selectedProvider());
}

void LLMConnectionSettingsDialog::loadDrafts(AIProviderID provider)
{
    const ProviderConnection::ProviderSettings values = m_connection->settings(provider);
    m_url->setText(values.baseURL);
    m_token->setText(values.token);
    m_systemPrompt->setPlainText(values.systemPrompt);
    refreshNotes();
}

void LLMConnectionSettingsDialog::refreshNotes()
{
    m_tokenNote->setText(m_token->text().isEmpty() ? QStringLiteral("No token configured") : QStringLiteral("Token configured"));
    const QString prompt = m_systemPrompt->toPlainText();
    m_promptNote->setText(
        QStringLiteral("Sent automatically as the first message after every successful connection. Leave blank to skip.\n") +
        (prompt.trimmed().isEmpty() ? QStringLiteral("No system prompt — skipped on connect")
                                    : QString::number(prompt.size()) + QStringLiteral(" characters configured")));
}

void LLMConnectionSettingsDialog::saveAndClose()
{
    const auto provider = AIProviderID(m_provider->currentData().toInt());
    m_connection->applySettings(provider, {m_url->text().trimmed(), m_token->text().trimmed(), m_systemPrompt->toPlainText()});
    if (provider == m_connection->selectedProvider())
        m_connection->applyModelSettings(m_inference->temperatureField()->text(), m_inference->maxTokensField()->text());
    accept();
}
