#pragma once

#include "base/AbstractController.h"
#include "workbench/JSONParameter.h"

#include <QJsonObject>
#include <QList>
#include <functional>

// The run dialog ("Check and Run Script"): a handler name and rows of JSON parameters.
// "Execute" builds the parameters and hands them to the runner, unless the handler name is
// blank, in which case the dialog stays open and nothing runs. Main thread only.
class RunScriptManager : public AbstractController {
    Q_OBJECT

public:
    using Runner = std::function<void(const QString &handlerName, const QJsonObject &params)>;

    explicit RunScriptManager(QObject *parent = nullptr);

    bool isVisible() const { return m_isVisible; }
    void setVisible(bool visible);
    QString handlerName() const { return m_handlerName; }
    void setHandlerName(const QString &name) { m_handlerName = name; }
    QList<JSONParameter> &parameters() { return m_parameters; }
    const QList<JSONParameter> &parameters() const { return m_parameters; }
    void addParameter() { m_parameters.append(JSONParameter{}); }
    void clearAll() { m_parameters.clear(); }

    // Rows in list order; a later row of the same key replaces the earlier; blank keys skipped.
    QJsonObject builtParameters() const;
    // "Execute": runs and closes, or does nothing for a blank handler name.
    void execute(const Runner &runner);

private:
    bool m_isVisible = false;
    QString m_handlerName;
    QList<JSONParameter> m_parameters;
};
