#include "app/ChildProcessPluginInspector.h"

#include "tools/plugins/ExternToolBridge.h"
#include "tools/plugins/ToolDiscoveryService.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <cstdio>

namespace {

const QString kDomain = QStringLiteral("PluginInspector");

AppError inspectionError(int code, const QString &description)
{
    return AppError{kDomain, code, description};
}

}  // namespace

ChildProcessPluginInspector::ChildProcessPluginInspector(QString executable, int timeoutMs)
    : m_executable(std::move(executable)), m_timeoutMs(timeoutMs)
{
}

Result<ToolDescriptor> ChildProcessPluginInspector::inspect(const QString &path, int pluginType)
{
    QProcess child;
    child.setProgram(m_executable);
    child.setArguments({QStringLiteral("plugin"), QStringLiteral("inspect"), QString::number(pluginType), path});
    child.start(QIODevice::ReadOnly);
    auto fail = [](int code, const QString &description) -> Result<ToolDescriptor> {
        return inspectionError(code, description);
    };
    if (!child.waitForStarted(m_timeoutMs))
        return fail(1, QStringLiteral("The plug-in could not be inspected: %1").arg(child.errorString()));
    if (!child.waitForFinished(m_timeoutMs)) {
        child.kill();
        child.waitForFinished(1000);
        return fail(2, QStringLiteral("Inspecting the plug-in did not finish within %1 s").arg(m_timeoutMs / 1000));
    }
    const QByteArray output = child.readAllStandardOutput().trimmed();
    if (child.exitStatus() != QProcess::NormalExit)
        return fail(3, QStringLiteral("The plug-in crashed while it was inspected"));
    if (child.exitCode() == 0) {
        if (std::optional<ToolDescriptor> descriptor = PluginInspector::fromJson(output))
            return *std::move(descriptor);
        return fail(4, QStringLiteral("Invalid plugin descriptor. Installation failed."));
    }
    // The loader's own words, as the child reported them.
    const QJsonObject reported = QJsonDocument::fromJson(output).object();
    const QString description = reported.value(QStringLiteral("error")).toString();
    return AppError{reported.value(QStringLiteral("domain")).toString(kDomain),
                    reported.value(QStringLiteral("code")).toInt(5), description};
}

int ChildProcessPluginInspector::runChild(const QString &path, int pluginType)
{
    ExternToolBridge bridge;
    const Result<ToolDiscoveryService::Handler> handler = bridge.registerPlugin(path, pluginType);
    const AppError error = handler ? AppError{} : handler.error();
    std::optional<ToolDescriptor> descriptor;
    if (handler)
        descriptor = (*handler)->getToolDescriptor();
    if (!descriptor) {
        const QString description = !error.domain.isEmpty() || !error.description.isEmpty()
                                        ? ToolDiscoveryService::failureDescription(error)
                                        : QStringLiteral("Invalid plugin descriptor. Installation failed.");
        const QJsonObject reported{{"domain", error.domain.isEmpty() ? kDomain : error.domain},
                                   {"code", error.code},
                                   {"error", description}};
        std::fputs(QJsonDocument(reported).toJson(QJsonDocument::Compact).constData(), stdout);
        std::fputc('\n', stdout);
        return 1;
    }
    std::fputs(PluginInspector::toJson(*descriptor).constData(), stdout);
    std::fputc('\n', stdout);
    return 0;
}
