#pragma once

#include "store/PromptArgumentSnapshot.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptConfigSnapshot.h"
#include "store/PromptQueryService.h"
#include "store/ResourceConfig.h"
#include "store/ResourceConfigSnapshot.h"
#include "store/ResourceQueryService.h"
#include "app/config/StoreBackedController.h"

// Two minimal screens on the edit-transaction base, as the configuration controllers use
// it: one without children (resources), one with a child list and two paste kinds (prompts).

class MiniResourceController : public StoreBackedController {
    Q_OBJECT
public:
    MiniResourceController(StoreContext *context, ConfigClipboard *clipboard) : StoreBackedController(context, clipboard)
    {
        addPasteHandler<ResourceConfigSnapshot>(ConfigClipboard::resourceConfigType, [this](const auto &snapshot) {
            auto *resource = this->context()->insert<ResourceConfig>();
            resource->setName(snapshot.name + QStringLiteral(" Copy"));
            appendRecord(resource);
            setSelectedRecord(resource);
            updateUnsaved(true);
        });
    }

    bool canPaste() const override { return clipboardHasPasteable(); }
    void copySelectedItem() override
    {
        if (auto *resource = selectedAs<ResourceConfig>())
            copyToClipboard(ResourceConfigSnapshot::fromRecord(*resource), ConfigClipboard::resourceConfigType);
    }

    int pasteMisses = 0;

protected:
    FetchRequest listRequest() const override { return ResourceQueryService::resourcesRequest(); }
    StoreRecord *createRecord() override { return ResourceQueryService::createResourceConfig(context()); }
    void willReloadAfterAddingRevert() override { setSelectedRecord(nullptr); }
    void didDeleteTopRecord() override { setSelectedRecord(nullptr); }
    void pasteFoundNothing() override { ++pasteMisses; }
};

class MiniPromptController : public StoreBackedController {
    Q_OBJECT
public:
    enum Focus { promptListView, promptDetailView, promptArgList };

    MiniPromptController(StoreContext *context, ConfigClipboard *clipboard) : StoreBackedController(context, clipboard)
    {
        addPasteHandler<PromptConfigSnapshot>(ConfigClipboard::promptConfigType, [this](const auto &snapshot) {
            auto *prompt = this->context()->insert<PromptConfig>();
            prompt->setName(snapshot.name + QStringLiteral(" Copy"));
            appendRecord(prompt);
            setSelectedRecord(prompt);
            updateUnsaved(true);
        });
        addPasteHandler<PromptArgumentSnapshot>(ConfigClipboard::promptArgumentType, [this](const auto &snapshot) {
            auto *argument = this->context()->insert<PromptArguments>();
            argument->setName(snapshot.name + QStringLiteral(" Copy"));
            selectedPrompt()->addArgumentsObject(argument);
            updateUnsaved(true);
        });
    }

    PromptConfig *selectedPrompt() const { return selectedAs<PromptConfig>(); }
    using StoreBackedController::deleteChild;
    // The prompt, or its first argument while the focus is on the argument list.
    void copySelectedItem() override
    {
        if (PromptConfig *prompt = selectedPrompt(); prompt && focusedField() == promptArgList)
            copyToClipboard(PromptArgumentSnapshot::fromRecord(*prompt->arguments().first()),
                            ConfigClipboard::promptArgumentType);
        else if (prompt)
            copyToClipboard(PromptConfigSnapshot::fromRecord(*prompt), ConfigClipboard::promptConfigType);
    }

protected:
    FetchRequest listRequest() const override { return PromptQueryService::promptsRequest(); }
    StoreRecord *createRecord() override { return PromptQueryService::createPrompt(context(), records().size()); }
    std::optional<QString> addRefusalMessage() const override
    {
        return QStringLiteral("Commit or revert transaction first.");
    }
    std::optional<int> focusAfterRevert(bool wasAdding) const override
    {
        return wasAdding ? std::optional<int>(promptListView) : std::nullopt;
    }
};
