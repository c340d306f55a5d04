#include "tests/store/MiniControllers.h"

#include "store/PromptArgumentSnapshot.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptConfigSnapshot.h"
#include "store/PromptQueryService.h"
#include "store/ResourceConfig.h"
#include "store/ResourceConfigSnapshot.h"
#include "store/ResourceQueryService.h"

MiniResourceController::MiniResourceController(StoreContext *context, ConfigClipboard *clipboard)
    : StoreBackedController(context, clipboard)
{
    addPasteHandler<ResourceConfigSnapshot>(ConfigClipboard::resourceConfigType,
                                            [this](const ResourceConfigSnapshot &s) {
                                                auto *resource = this->context()->insert<ResourceConfig>();
                                                resource->setId(QUuid::createUuid());
                                                resource->setName(s.name + QStringLiteral(" Copy"));
                                                resource->setType(s.type);
                                                resource->setMimeType(s.mimeType);
                                                resource->setUri(QUrl(s.uriString));
                                                resource->setAnnPriority(s.annPriority);
                                                appendRecord(resource);
                                                setSelectedRecord(resource);
                                                updateUnsaved(true);
                                            });
}

FetchRequest MiniResourceController::listRequest() const { return ResourceQueryService::resourcesRequest(); }

StoreRecord *MiniResourceController::createRecord() { return ResourceQueryService::createResourceConfig(context()); }

void MiniResourceController::copySelectedItem()
{
    if (auto *resource = selectedAs<ResourceConfig>())
        copyToClipboard(ResourceConfigSnapshot::fromRecord(*resource), ConfigClipboard::resourceConfigType);
}

MiniPromptController::MiniPromptController(StoreContext *context, ConfigClipboard *clipboard)
    : StoreBackedController(context, clipboard)
{
    addPasteHandler<PromptConfigSnapshot>(ConfigClipboard::promptConfigType, [this](const PromptConfigSnapshot &s) {
        auto *prompt = this->context()->insert<PromptConfig>();
        prompt->setId(QUuid::createUuid());
        prompt->setName(s.name + QStringLiteral(" Copy"));
        prompt->setTemplateText(s.templateText);
        for (const PromptArgumentSnapshot &a : s.arguments) {
            auto *argument = this->context()->insert<PromptArguments>();
            argument->setId(QUuid::createUuid());
            argument->setName(a.name);
            argument->setRequired(a.required);
            prompt->addArgumentsObject(argument);
        }
        appendRecord(prompt);
        setSelectedRecord(prompt);
        updateUnsaved(true);
        setFocus(promptDetailView);
    });
    addPasteHandler<PromptArgumentSnapshot>(
        ConfigClipboard::promptArgumentType, [this](const PromptArgumentSnapshot &s) {
            PromptConfig *prompt = selectedPrompt();
            if (!prompt) {
                showAlert(QStringLiteral("Paste Error"), QStringLiteral("Select a prompt before pasting an argument."));
                return;
            }
            auto *argument = this->context()->insert<PromptArguments>();
            argument->setId(QUuid::createUuid());
            argument->setName(s.name + QStringLiteral(" Copy"));
            argument->setRequired(s.required);
            prompt->addArgumentsObject(argument);
            m_selectedArgument = argument;
            updateUnsaved(true);
            setFocus(promptArgList);
        });
}

PromptConfig *MiniPromptController::selectedPrompt() const { return selectedAs<PromptConfig>(); }

FetchRequest MiniPromptController::listRequest() const { return PromptQueryService::promptsRequest(); }

StoreRecord *MiniPromptController::createRecord()
{
    return PromptQueryService::createPrompt(context(), records().size());
}

void MiniPromptController::selectionDidChange()
{
    const QList<PromptArguments *> sorted = PromptQueryService::sortedArguments(selectedPrompt());
    m_selectedArgument = sorted.isEmpty() ? nullptr : sorted.first();
}

void MiniPromptController::deleteArgument(PromptArguments *argument)
{
    deleteChild(argument);
    const QList<PromptArguments *> sorted = PromptQueryService::sortedArguments(selectedPrompt());
    m_selectedArgument = sorted.isEmpty() ? nullptr : sorted.first();
}

void MiniPromptController::refreshAfterRevert()
{
    StoreBackedController::refreshAfterRevert();
    if (m_selectedArgument)
        context()->refresh(m_selectedArgument, false);
    if (selectedPrompt() && focusedField() == promptArgList) {
        const QList<PromptArguments *> sorted = PromptQueryService::sortedArguments(selectedPrompt());
        m_selectedArgument = sorted.isEmpty() ? nullptr : sorted.first();
        if (!m_selectedArgument)
            setFocus(promptDetailView);
    }
}

std::optional<int> MiniPromptController::focusAfterRevert(bool wasAdding) const
{
    return wasAdding ? std::optional<int>(promptListView) : std::nullopt;
}

void MiniPromptController::copySelectedItem()
{
    if (focusedField() == promptArgList) {
        if (m_selectedArgument)
            copyToClipboard(PromptArgumentSnapshot::fromRecord(*m_selectedArgument),
                            ConfigClipboard::promptArgumentType);
    } else if (PromptConfig *prompt = selectedPrompt()) {
        copyToClipboard(PromptConfigSnapshot::fromRecord(*prompt), ConfigClipboard::promptConfigType);
    }
}
