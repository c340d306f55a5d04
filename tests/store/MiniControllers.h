#pragma once

#include "store/StoreBackedController.h"

class PromptArguments;
class PromptConfig;

// Two minimal screens on the edit-transaction base, as the configuration controllers use
// it: one without children (resources), one with a child list and two paste kinds (prompts).

class MiniResourceController : public StoreBackedController {
    Q_OBJECT
public:
    MiniResourceController(StoreContext *context, ConfigClipboard *clipboard);

    bool canCopy() const override { return selectedRecord() != nullptr; }
    bool canPaste() const override { return clipboardHasPasteable(); }
    bool canDelete() const override { return selectedRecord() && !isAdding(); }
    void copySelectedItem() override;

    int pasteMisses = 0;

protected:
    FetchRequest listRequest() const override;
    StoreRecord *createRecord() override;
    void willReloadAfterAddingRevert() override { setSelectedRecord(nullptr); }
    void didDeleteTopRecord() override { setSelectedRecord(nullptr); }
    void pasteFoundNothing() override { ++pasteMisses; }
};

class MiniPromptController : public StoreBackedController {
    Q_OBJECT
public:
    enum Focus { promptListView, promptDetailView, promptArgList };

    MiniPromptController(StoreContext *context, ConfigClipboard *clipboard);

    PromptConfig *selectedPrompt() const;
    PromptArguments *selectedArgument() const { return m_selectedArgument; }
    void setSelectedArgument(PromptArguments *argument) { m_selectedArgument = argument; }
    // The child rule, after the screen's confirmation.
    void deleteArgument(PromptArguments *argument);

    void copySelectedItem() override;

protected:
    FetchRequest listRequest() const override;
    StoreRecord *createRecord() override;
    std::optional<QString> addRefusalMessage() const override
    {
        return QStringLiteral("Commit or revert transaction first.");
    }
    void refreshAfterRevert() override;
    void willReloadAfterAddingRevert() override { setSelectedRecord(nullptr); }
    std::optional<int> focusAfterRevert(bool wasAdding) const override;
    bool focusIsOnTopRecord() const override { return focusedField().value_or(promptListView) != promptArgList; }
    void selectionDidChange() override;

private:
    PromptArguments *m_selectedArgument = nullptr;
};
