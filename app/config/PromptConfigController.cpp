#include "app/config/PromptConfigController.h"

#include "store/PromptArgumentSnapshot.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptConfigSnapshot.h"
#include "store/PromptQueryService.h"
#include "tools/router/PromptMessages.h"

#include <QJsonArray>
#include <QJsonDocument>

PromptConfigController::PromptConfigController(StoreContext *context, ConfigClipboard *clipboard, QObject *parent)
    : StoreBackedController(context, clipboard, parent)
{
    // Paste tries the prompt first, then the argument.
    addPasteHandler<PromptConfigSnapshot>(ConfigClipboard::promptConfigType, [this](const PromptConfigSnapshot &s) {
        auto *prompt = this->context()->insert<PromptConfig>();
        prompt->setId(QUuid::createUuid());
        prompt->setName(s.name + QStringLiteral(" Copy"));
        prompt->setPromptDescription(s.promptDescription);
        prompt->setTemplateText(s.templateText);
        prompt->setMessagesJson(s.messagesJson);
        for (const PromptArgumentSnapshot &a : s.arguments) {
            auto *argument = this->context()->insert<PromptArguments>();
            argument->setId(QUuid::createUuid());
            argument->setName(a.name);
            argument->setInfo(a.info);
            argument->setRequired(a.required);
            argument->setPromptConfig(prompt);
        }
        appendRecord(prompt);
        setSelectedRecord(prompt);
        updateUnsaved(true);
        setFocus(promptDetailView);
        printConsole(QString::asprintf("[PromptConfigController] Pasted prompt '%s' with %d arg(s).",
                                       qUtf8Printable(s.name + QStringLiteral(" Copy")), int(s.arguments.size())));
    });
    addPasteHandler<PromptArgumentSnapshot>(ConfigClipboard::promptArgumentType, [this](const PromptArgumentSnapshot &s) {
        PromptConfig *prompt = selectedPrompt();
        if (!prompt) {
            showAlert(QStringLiteral("Paste Error"), QStringLiteral("Select a prompt before pasting an argument."));
            return;
        }
        auto *argument = this->context()->insert<PromptArguments>();
        argument->setId(QUuid::createUuid());
        argument->setName(s.name + QStringLiteral(" Copy"));
        argument->setInfo(s.info);
        argument->setRequired(s.required);
        argument->setPromptConfig(prompt);
        setSelectedArgument(argument);
        updateUnsaved(true);
        setFocus(promptArgList);
        printConsole(QString::asprintf("[PromptConfigController] Pasted argument '%s' into prompt '%s'.",
                                       qUtf8Printable(s.name + QStringLiteral(" Copy")),
                                       qUtf8Printable(prompt->name().value_or(QString()))));
    });
}

QList<PromptConfig *> PromptConfigController::prompts() const
{
    return recordsAs<PromptConfig>();
}

PromptConfig *PromptConfigController::selectedPrompt() const
{
    return selectedAs<PromptConfig>();
}

PromptConfig *PromptConfigController::promptToDelete() const
{
    return static_cast<PromptConfig *>(recordToDelete());
}

void PromptConfigController::setSelectedArgument(PromptArguments *argument)
{
    if (m_selectedArgument == argument)
        return;
    m_selectedArgument = argument;
    emit argumentStateChanged();
    notifyChange();
}

FetchRequest PromptConfigController::listRequest() const
{
    return PromptQueryService::promptsRequest();
}

StoreRecord *PromptConfigController::createRecord()
{
    return PromptQueryService::createPrompt(context(), records().size());
}

void PromptConfigController::selectionDidChange()
{
    // A new prompt brings its own first argument into view.
    const QList<PromptArguments *> sorted = PromptQueryService::sortedArguments(selectedPrompt());
    setSelectedArgument(sorted.isEmpty() ? nullptr : sorted.first());
}

void PromptConfigController::addArgumentTapped()
{
    if (!selectedPrompt())
        return;
    m_showingAddArgument = true;
    emit argumentStateChanged();
}

void PromptConfigController::editButtonTapped()
{
    if (!m_selectedArgument || focusedField() != promptArgList)
        return;
    m_showingEditArgument = true;
    emit argumentStateChanged();
}

void PromptConfigController::saveNewArgument(const ArgumentForm &form)
{
    PromptConfig *prompt = selectedPrompt();
    m_showingAddArgument = false;
    if (prompt) {
        auto *argument = context()->insert<PromptArguments>();
        argument->setId(QUuid::createUuid());
        argument->setName(form.name);
        argument->setInfo(form.info);
        argument->setRequired(form.required);
        argument->setCompletionValues(storedValues(form.values));
        argument->setPromptConfig(prompt);
        setSelectedArgument(argument);
        updateUnsaved(true);
    }
    emit argumentStateChanged();
}

void PromptConfigController::newArgumentTapped()
{
    PromptConfig *prompt = selectedPrompt();
    if (!prompt)
        return;
    PromptArguments *argument = PromptQueryService::createArgument(context(), prompt);
    setSelectedArgument(argument);
    updateUnsaved(true);
    emit argumentStateChanged();
}

void PromptConfigController::duplicateSelectedPrompt()
{
    // The row's prompt, wherever the focus stands in the form.
    PromptConfig *prompt = selectedPrompt();
    if (!prompt || !copyToClipboard(PromptConfigSnapshot::fromRecord(*prompt), ConfigClipboard::promptConfigType))
        return;
    pasteItem();
}

void PromptConfigController::cancelAddArgument()
{
    m_showingAddArgument = false;
    emit argumentStateChanged();
}

std::optional<QString> PromptConfigController::storedValues(const QString &text)
{
    QJsonArray values;
    for (const QString &value : text.split(QLatin1Char(',')))
        if (!value.trimmed().isEmpty())
            values.append(value.trimmed());
    if (values.isEmpty())
        return std::nullopt;
    return QString::fromUtf8(QJsonDocument(values).toJson(QJsonDocument::Compact));
}

QString PromptConfigController::valuesText(const std::optional<QString> &stored)
{
    QStringList values;
    for (const QJsonValue &value : QJsonDocument::fromJson(stored.value_or(QString()).toUtf8()).array())
        values.append(value.toString());
    return values.join(QStringLiteral(", "));
}

PromptConfigController::ArgumentForm PromptConfigController::editForm() const
{
    if (!m_selectedArgument)
        return {};
    return {m_selectedArgument->name().value_or(QString()), m_selectedArgument->info().value_or(QString()),
            m_selectedArgument->required(), valuesText(m_selectedArgument->completionValues())};
}

void PromptConfigController::saveEditedArgument(const ArgumentForm &form)
{
    m_showingEditArgument = false;
    if (PromptArguments *argument = m_selectedArgument) {
        if (argument->name() != form.name)
            argument->setName(form.name);
        if (argument->info() != form.info)
            argument->setInfo(form.info);
        if (argument->required() != form.required)
            argument->setRequired(form.required);
        if (const std::optional<QString> values = storedValues(form.values); argument->completionValues() != values)
            argument->setCompletionValues(values);
        updateUnsaved(true);
    }
    emit argumentStateChanged();
}

void PromptConfigController::cancelEditArgument()
{
    m_showingEditArgument = false;
    emit argumentStateChanged();
}

bool PromptConfigController::focusIsOnTopRecord() const
{
    return focusedField() == promptListView || focusedField() == promptDetailView;
}

void PromptConfigController::deleteTapped()
{
    if (focusIsOnTopRecord()) {
        if (selectedPrompt())
            requestDelete(selectedPrompt());
        else
            showAlert(QStringLiteral("Error"), QStringLiteral("No prompt selected."));
    } else if (focusedField() == promptArgList) {
        if (!m_selectedArgument) {
            showAlert(QStringLiteral("Error"), QStringLiteral("No argument selected."));
            return;
        }
        m_argumentToDelete = m_selectedArgument;
        m_showingDeleteArgumentConfirmation = true;
        emit argumentStateChanged();
    }
    // Any other field: nothing, although canDelete may say yes there.
}

void PromptConfigController::confirmDeleteArgument()
{
    PromptArguments *argument = std::exchange(m_argumentToDelete, nullptr);
    m_showingDeleteArgumentConfirmation = false;
    if (argument) {
        PromptConfig *prompt = argument->promptConfig();
        deleteChild(argument);
        const QList<PromptArguments *> sorted = PromptQueryService::sortedArguments(prompt);
        m_selectedArgument = nullptr;
        for (PromptArguments *remaining : sorted) {
            if (remaining != argument) {
                m_selectedArgument = remaining;
                break;
            }
        }
    }
    emit argumentStateChanged();
    notifyChange();
}

void PromptConfigController::cancelDeleteArgument()
{
    m_argumentToDelete = nullptr;
    m_showingDeleteArgumentConfirmation = false;
    emit argumentStateChanged();
}

void PromptConfigController::didDeleteTopRecord()
{
    setSelectedRecord(nullptr);
}

void PromptConfigController::refreshAfterRevert()
{
    StoreBackedController::refreshAfterRevert();
    if (m_selectedArgument && !PromptQueryService::sortedArguments(selectedPrompt()).contains(m_selectedArgument))
        m_selectedArgument = nullptr;
    m_argumentsGoneOnRevert = false;
    if (selectedPrompt() && focusedField() == promptArgList) {
        const QList<PromptArguments *> sorted = PromptQueryService::sortedArguments(selectedPrompt());
        m_selectedArgument = sorted.isEmpty() ? nullptr : sorted.first();
        m_argumentsGoneOnRevert = sorted.isEmpty();
    }
    emit argumentStateChanged();
}

void PromptConfigController::willReloadAfterAddingRevert()
{
    setSelectedRecord(nullptr);
    m_selectedArgument = nullptr;
}

std::optional<int> PromptConfigController::focusAfterRevert(bool wasAdding) const
{
    if (wasAdding)
        return promptListView;
    if (m_argumentsGoneOnRevert)
        return promptDetailView;
    return std::nullopt;
}

void PromptConfigController::setName(const QString &text)
{
    if (PromptConfig *p = selectedPrompt(); p && p->name().value_or(QString()) != text)
        p->setName(text);
}

void PromptConfigController::setPromptDescription(const QString &text)
{
    if (PromptConfig *p = selectedPrompt(); p && p->promptDescription().value_or(QString()) != text)
        p->setPromptDescription(text);
}

void PromptConfigController::setTemplateText(const QString &text)
{
    if (PromptConfig *p = selectedPrompt(); p && p->templateText().value_or(QString()) != text)
        p->setTemplateText(text);
}

void PromptConfigController::setMessagesText(const QString &text)
{
    PromptConfig *p = selectedPrompt();
    if (!p || p->messagesJson().value_or(QString()) == text)
        return;
    // A blank text is no messages, as a prompt of the template alone has.
    p->setMessagesJson(text.trimmed().isEmpty() ? std::nullopt : std::optional<QString>(text));
}

QString PromptConfigController::messagesText() const
{
    const PromptConfig *p = selectedPrompt();
    return p ? p->messagesJson().value_or(QString()) : QString();
}

std::optional<QString> PromptConfigController::messagesProblem() const
{
    return PromptMessages::textProblem(messagesText());
}

bool PromptConfigController::canEditArgument() const
{
    return focusedField() == promptArgList && m_selectedArgument &&
           (!selectedPrompt() || !selectedPrompt()->arguments().isEmpty());
}

bool PromptConfigController::canDelete() const
{
    const std::optional<int> focus = focusedField();
    if (focus && *focus < promptArgList)
        return selectedPrompt() && !isAdding();
    if (focus == promptArgList)
        return canEditArgument();
    return false;
}

bool PromptConfigController::canCopy() const
{
    if (focusIsOnTopRecord())
        return selectedPrompt() != nullptr;
    if (focusedField() == promptArgList)
        return m_selectedArgument != nullptr;
    return false;
}

bool PromptConfigController::canPaste() const
{
    if (clipboard()->has(ConfigClipboard::promptConfigType))
        return true;
    return clipboard()->has(ConfigClipboard::promptArgumentType) && selectedPrompt();
}

void PromptConfigController::copySelectedItem()
{
    if (focusIsOnTopRecord()) {
        if (PromptConfig *prompt = selectedPrompt()) {
            const PromptConfigSnapshot snapshot = PromptConfigSnapshot::fromRecord(*prompt);
            if (copyToClipboard(snapshot, ConfigClipboard::promptConfigType))
                printConsole(QString::asprintf("[PromptConfigController] Copied prompt '%s' (%d arg(s)).",
                                               qUtf8Printable(snapshot.name), int(snapshot.arguments.size())));
        }
    } else if (focusedField() == promptArgList && m_selectedArgument) {
        const PromptArgumentSnapshot snapshot = PromptArgumentSnapshot::fromRecord(*m_selectedArgument);
        if (copyToClipboard(snapshot, ConfigClipboard::promptArgumentType))
            printConsole(QStringLiteral("[PromptConfigController] Copied argument '") + snapshot.name + QStringLiteral("'."));
    }
}

void PromptConfigController::pasteFoundNothing()
{
    printConsole(QStringLiteral("[PromptConfigController] pasteItem: no compatible snapshot on clipboard."));
}

QList<PromptConfig *> PromptConfigController::filteredPrompts(const QString &query) const
{
    const QString needle = query.trimmed().toLower();
    const QList<PromptConfig *> all = prompts();
    if (needle.isEmpty())
        return all;
    QList<PromptConfig *> shown;
    for (PromptConfig *p : all) {
        if (p->name().value_or(QString()).toLower().contains(needle) ||
            p->promptDescription().value_or(QString()).toLower().contains(needle) ||
            p->templateText().value_or(QString()).toLower().contains(needle))
            shown.append(p);
    }
    return shown;
}

QString PromptConfigController::rowName(const PromptConfig *p)
{
    return p->name().value_or(QString());
}

QString PromptConfigController::rowDescription(const PromptConfig *p)
{
    const QString text = p->promptDescription().value_or(QString());
    return text.isEmpty() ? QStringLiteral("No description") : text;
}

QString PromptConfigController::rowArguments(const PromptConfig *p)
{
    QString text = QStringLiteral("Arguments: ") + QString::number(p->arguments().size());
    if (PromptQueryService::hasRequiredArguments(p))
        text += QStringLiteral(" · Required args");
    return text;
}

QString PromptConfigController::argumentRowName(const PromptArguments *a)
{
    const QString name = a->name().value_or(QString());
    return name.isEmpty() ? QStringLiteral("Unnamed Argument") : name;
}

QString PromptConfigController::argumentRowKind(const PromptArguments *a)
{
    return a->required() ? QStringLiteral("Required") : QStringLiteral("Optional");
}

QString PromptConfigController::deletePromptText() const
{
    const PromptConfig *p = promptToDelete();
    const QString name = p ? p->name().value_or(QString()) : QString();
    return QStringLiteral("Are you sure you want to delete ") + (name.isEmpty() ? QStringLiteral("Unnamed Prompt") : name) +
           QStringLiteral("? This action cannot be undone.");
}

QString PromptConfigController::deleteArgumentText() const
{
    const QString name = m_argumentToDelete ? m_argumentToDelete->name().value_or(QString()) : QString();
    return QStringLiteral("Are you sure you want to delete argument ") +
           (name.isEmpty() ? QStringLiteral("Unnamed Argument") : name) + QStringLiteral("? This action cannot be undone.");
}
