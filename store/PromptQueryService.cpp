#include "store/PromptQueryService.h"

#include "store/CodePointOrder.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/StoreContext.h"

#include <QCoreApplication>

#include <algorithm>

FetchRequest PromptQueryService::promptsRequest()
{
    FetchRequest request = FetchRequest::forEntity(StoreEntity::PromptConfig);
    request.sortByName = true;
    request.relationshipKeyPathsForPrefetching = {QStringLiteral("arguments")};
    return request;
}

Result<QList<PromptConfig *>> PromptQueryService::fetchPrompts(StoreContext *context)
{
    return context->fetch<PromptConfig>(promptsRequest());
}

QList<PromptArguments *> PromptQueryService::sortedArguments(const PromptConfig *prompt)
{
    if (!prompt)
        return {};
    QList<PromptArguments *> arguments = prompt->arguments();
    std::stable_sort(arguments.begin(), arguments.end(), [](const PromptArguments *a, const PromptArguments *b) {
        return CodePointOrder::less(a->name(), b->name());
    });
    return arguments;
}

QList<PromptArguments *> PromptQueryService::argumentsRequiredFirst(const PromptConfig *prompt)
{
    QList<PromptArguments *> arguments = sortedArguments(prompt);
    std::stable_partition(arguments.begin(), arguments.end(), [](const PromptArguments *a) { return a->required(); });
    return arguments;
}

bool PromptQueryService::hasRequiredArguments(const PromptConfig *prompt)
{
    if (!prompt)
        return false;
    const QList<PromptArguments *> arguments = prompt->arguments();
    return std::any_of(arguments.cbegin(), arguments.cend(), [](const PromptArguments *a) { return a->required(); });
}

PromptConfig *PromptQueryService::createPrompt(StoreContext *context, qsizetype listedPrompts)
{
    auto *prompt = context->insert<PromptConfig>();
    prompt->setId(QUuid::createUuid());
    prompt->setName(QCoreApplication::translate("Kelvara", "Text Generator #%1").arg(listedPrompts + 1));
    prompt->setPromptDescription(QCoreApplication::translate("Kelvara", "Generates formatted text"));
    prompt->setTemplateText(QCoreApplication::translate("Kelvara", "Create a text about {topic}"));
    createArgument(context, prompt);
    return prompt;
}

PromptArguments *PromptQueryService::createArgument(StoreContext *context, PromptConfig *prompt)
{
    const qsizetype number = (prompt ? prompt->arguments().size() : 0) + 1;
    auto *argument = context->insert<PromptArguments>();
    argument->setId(QUuid::createUuid());
    argument->setName(QCoreApplication::translate("Kelvara", "New Argument %1").arg(number));
    argument->setInfo(QCoreApplication::translate("Kelvara", "Description for new argument %1").arg(number));
    argument->setRequired(false);
    if (prompt)
        prompt->addArgumentsObject(argument);
    return argument;
}
