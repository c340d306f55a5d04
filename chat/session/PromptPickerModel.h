#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <optional>

class PromptConfig;
class StoreContext;

// "Insert Prompt from Prompt-Config": the stored prompts by name, a search over name,
// description and template, then the template's arguments to fill; inserting replaces each
// exact {{name}} by its value. Main thread; the rows belong to the store's context.
class PromptPickerModel {
public:
    enum class Step { selectPrompt, fillArguments };

    // Fetches every prompt by name; a failing fetch gives an empty list.
    void load(StoreContext *context);
    void setRows(QList<PromptConfig *> rows) { m_rows = std::move(rows); }

    QString searchText;
    PromptConfig *selected = nullptr;
    Step step = Step::selectPrompt;
    QHash<QString, QString> argumentValues;

    QList<PromptConfig *> visibleRows() const;
    // "No prompts configured." or "No results" for an empty list.
    QString emptyText() const;
    // On from the list: the template itself when it has no arguments, else the argument step.
    std::optional<QString> proceed();
    // Every required argument has a value (looked up by its trimmed name).
    bool canInsert() const;
    QString insertText() const;

private:
    QList<PromptConfig *> m_rows;
};
