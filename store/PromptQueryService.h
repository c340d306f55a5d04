#pragma once

#include "base/Result.h"
#include "store/FetchRequest.h"

#include <QList>

class StoreContext;
class PromptConfig;
class PromptArguments;

// Read helpers and creation defaults for prompts and their arguments. Holds no state.
class PromptQueryService {
public:
    // "PromptConfig" by `name` ascending, with the arguments loaded.
    static FetchRequest promptsRequest();
    static Result<QList<PromptConfig *>> fetchPrompts(StoreContext *context);

    // `arguments` sorted ascending on `name` (missing counts as "").
    static QList<PromptArguments *> sortedArguments(const PromptConfig *prompt);
    // Required arguments first, then optional ones; each group ascending on `name`.
    static QList<PromptArguments *> argumentsRequiredFirst(const PromptConfig *prompt);
    static bool hasRequiredArguments(const PromptConfig *prompt);

    // A new prompt named after the number of listed prompts plus one, with one new argument.
    static PromptConfig *createPrompt(StoreContext *context, qsizetype listedPrompts);
    // A new argument numbered after the prompt's argument count plus one, added to it.
    static PromptArguments *createArgument(StoreContext *context, PromptConfig *prompt);
};
