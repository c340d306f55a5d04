#pragma once

#include "app/config/StoreBackedController.h"

class PromptArguments;
class PromptConfig;

// The controller of the Prompts screen, on the shared edit transaction. The one child kind
// is the argument; the focus decides whether a command means the prompt or the selected
// argument. The argument sheets keep their own form and write it to the record on save.
//
// Main thread only.
class PromptConfigController : public StoreBackedController {
    Q_OBJECT

public:
    enum PromptFocusedField { promptListView, promptDetailView, promptName, promptDescription, promptTemplate, promptArgList };
    Q_ENUM(PromptFocusedField)

    // The form of the "Add Argument" and "Edit Argument" sheets.
    struct ArgumentForm {
        QString name;
        QString info;
        bool required = false;
        // The values offered for completing the argument, comma-separated.
        QString values;
    };
    // The comma-separated values as the stored JSON array, nothing when there are none; and back.
    static std::optional<QString> storedValues(const QString &text);
    static QString valuesText(const std::optional<QString> &stored);

    static inline const QString screenTitle = QStringLiteral("Prompt Configuration");
    static inline const QString leadText =
        QStringLiteral("Use prompts to create reusable prompt templates with optional arguments.");
    static inline const QString helpFile = QStringLiteral("help_prompt_config.md");
    static inline const QString filterPlaceholder = QStringLiteral("Search name, description or template…");

    explicit PromptConfigController(StoreContext *context, ConfigClipboard *clipboard = nullptr,
                                    QObject *parent = nullptr);

    QList<PromptConfig *> prompts() const;
    PromptConfig *selectedPrompt() const;
    PromptArguments *selectedArgument() const { return m_selectedArgument; }
    void setSelectedArgument(PromptArguments *argument);
    bool isAddingPrompt() const { return isAdding(); }
    bool showingAddArgument() const { return m_showingAddArgument; }
    bool showingEditArgument() const { return m_showingEditArgument; }
    bool showingDeleteArgumentConfirmation() const { return m_showingDeleteArgumentConfirmation; }
    PromptArguments *argumentToDelete() const { return m_argumentToDelete; }
    PromptConfig *promptToDelete() const;

    void addPromptTapped() { addTapped(); }
    void addArgumentTapped();
    // "New Argument": with a selected prompt, an argument with its creation defaults, selected
    // and pending at once (no sheet).
    void newArgumentTapped();
    // A row's "Duplicate": copy, then paste, of the selected prompt.
    void duplicateSelectedPrompt();
    void editButtonTapped();
    void deleteButtonTapped() { deleteTapped(); }
    void saveButtonTapped() { saveTapped(); }
    void revertButtonTapped() { revertTapped(); }
    void deleteTapped() override;

    // The sheets: save writes the form (a new argument, or the edited one); cancel closes.
    void saveNewArgument(const ArgumentForm &form);
    void cancelAddArgument();
    ArgumentForm editForm() const;
    void saveEditedArgument(const ArgumentForm &form);
    void cancelEditArgument();
    void confirmDeleteArgument();
    void cancelDeleteArgument();

    // The form's writes to the selected prompt, only when they differ.
    void setName(const QString &text);
    void setPromptDescription(const QString &text);
    void setTemplateText(const QString &text);
    // The messages (JSON text of the list) as typed, kept in the record also while they are
    // not valid yet so that no edit is lost; the export refuses them until they are.
    void setMessagesText(const QString &text);
    QString messagesText() const;
    // What is wrong with the selected prompt's messages; nothing when they are valid or blank.
    std::optional<QString> messagesProblem() const;

    bool canEditArgument() const;
    bool canDelete() const override;
    bool canCopy() const override;
    bool canPaste() const override;
    void copySelectedItem() override;

    QList<PromptConfig *> filteredPrompts(const QString &query) const;
    static QString rowName(const PromptConfig *prompt);
    static QString rowDescription(const PromptConfig *prompt);
    static QString rowArguments(const PromptConfig *prompt);
    static QString argumentRowName(const PromptArguments *argument);
    static QString argumentRowKind(const PromptArguments *argument);
    QString deletePromptText() const;
    QString deleteArgumentText() const;

signals:
    void argumentStateChanged();

protected:
    FetchRequest listRequest() const override;
    StoreRecord *createRecord() override;
    std::optional<QString> addRefusalMessage() const override
    {
        return QStringLiteral("Commit or revert transaction first.");
    }
    void refreshAfterRevert() override;
    void willReloadAfterAddingRevert() override;
    std::optional<int> focusAfterRevert(bool wasAdding) const override;
    bool focusIsOnTopRecord() const override;
    void didDeleteTopRecord() override;
    void selectionDidChange() override;
    void pasteFoundNothing() override;

private:
    PromptArguments *m_selectedArgument = nullptr;
    bool m_showingAddArgument = false;
    bool m_showingEditArgument = false;
    bool m_showingDeleteArgumentConfirmation = false;
    PromptArguments *m_argumentToDelete = nullptr;
    bool m_argumentsGoneOnRevert = false;
};
