#include "workbench/RunScriptManager.h"

RunScriptManager::RunScriptManager(QObject *parent) : AbstractController(parent) {}

void RunScriptManager::setVisible(bool visible)
{
    if (m_isVisible == visible)
        return;
    m_isVisible = visible;
    notifyChange();
}

QJsonObject RunScriptManager::builtParameters() const
{
    QJsonObject params;
    for (const JSONParameter &row : m_parameters) {
        const QString key = row.key.trimmed();
        if (!key.isEmpty())
            params.insert(key, row.jsonValue());
    }
    return params;
}

void RunScriptManager::execute(const Runner &runner)
{
    const QString handler = m_handlerName.trimmed();
    if (handler.isEmpty())
        return;
    runner(handler, builtParameters());
    setVisible(false);
}
