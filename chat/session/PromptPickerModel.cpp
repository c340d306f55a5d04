#include "chat/session/PromptPickerModel.h"

#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"

void PromptPickerModel::load(StoreContext *context)
{
    m_rows = context ? PromptQueryService::fetchPrompts(context).valueOr({}) : QList<PromptConfig *>();
}

QList<PromptConfig *> PromptPickerModel::visibleRows() const
{
    const QString query = searchText.trimmed();
    if (query.isEmpty())
        return m_rows;
    QList<PromptConfig *> rows;
    for (PromptConfig *row : m_rows) {
        for (const std::optional<QString> &field : {row->name(), row->promptDescription(), row->templateText()}) {
            if (field && field->contains(query, Qt::CaseInsensitive)) {
                rows.append(row);
                break;
            }
        }
    }
    return rows;
}

QString PromptPickerModel::emptyText() const
{
    return m_rows.isEmpty() ? QStringLiteral("No prompts configured.") : QStringLiteral("No results");
}

std::optional<QString> PromptPickerModel::proceed()
{
    if (!selected)
        return std::nullopt;
    if (selected->arguments().isEmpty())
        return selected->templateText().value_or(QString());
    step = Step::fillArguments;
    return std::nullopt;
}

bool PromptPickerModel::canInsert() const
{
    if (!selected)
        return false;
    for (PromptArguments *argument : selected->arguments()) {
        if (argument->required() && argumentValues.value(argument->name().value_or(QString()).trimmed()).isEmpty())
            return false;
    }
    return true;
}

QString PromptPickerModel::insertText() const
{
    if (!selected)
        return QString();
    QString text = selected->templateText().value_or(QString());
    for (PromptArguments *argument : PromptQueryService::sortedArguments(selected)) {
        const QString name = argument->name().value_or(QString()).trimmed();
        if (name.isEmpty())
            continue;
        text.replace(QStringLiteral("{{") + name + QStringLiteral("}}"), argumentValues.value(name));
    }
    return text;
}
