#pragma once

#include "base/Result.h"
#include "tools/http/HttpClient.h"
#include "tools/plugins/ToolDiscoveryService.h"

#include <QString>

// The one object through which the application reaches native plug-ins and the HTTP
// client. The HTTP operations give their results as the JSON text of HttpClientResult
// (success, statusCode, headers, body, error), which is what scripts, plug-ins and link
// resources read. Their log lines go to the system log.
//
// Any thread: each HTTP operation blocks its caller until the exchange is over.
class ExternToolBridge {
public:
    // Its client is made here, with a time-out of 30 seconds and no verbose logging.
    ExternToolBridge();

    HttpClient &httpClient() { return m_httpClient; }

    QString httpGet(const QString &url, const QString &queryJSON);
    QString httpPost(const QString &url, const QString &body, const QString &headersJSON);
    QString httpRequest(const QString &method, const QString &url, const QString &body, const QString &paramsJSON,
                        const QString &headersJSON);
    // Replaces destination only after a 2xx answer.
    bool downloadFile(const QString &url, const QString &destination);

    // Native plug-ins. Errors have the domain "ExternToolBridge": 16 when no handler could be
    // made, 116 when a name or a path is missing; a load failure gives the loader's own error
    // (domain "CustomToolHandler"), or an empty one for a library of another interface
    // version (ToolDiscoveryService::failureDescription words it). The lines go to the
    // system log. The list of registered handlers is the
    // discovery service's; tool calls never read it, they load their own handler.
    static inline const QString errorDomain = QStringLiteral("ExternToolBridge");

    ToolDiscoveryService &discoveryService() { return m_discoveryService; }
    QList<ToolDiscoveryService::Handler> availableTools() const { return m_discoveryService.availableTools(); }

    // Loads a handler that is in no list; the caller owns it, and a library is closed again
    // when it is dropped. Any thread: tool calls load in parallel.
    Result<std::unique_ptr<CustomToolHandler>> loadPlugin(const QString &path, int pluginType);
    // Loads and appends to the list.
    Result<ToolDiscoveryService::Handler> registerPlugin(const QString &path, int pluginType);
    // Unloads the first listed handler of that name; it stays in the list. An unknown name is
    // no error.
    Result<void> unloadPlugin(const QString &name);
    // nullptr for an unknown name.
    Result<ToolDiscoveryService::Handler> findPlugin(const QString &name) const;
    void startPluginDiscoveryAtPath(const QString &path);
    // Refills the list from plug-in info dictionaries (see ToolDiscoveryService).
    void startPluginDiscoveryWithBookmarks(const QVariantList &plugins);
    // As registerPlugin, loading from bookmarkPath; path is for the messages.
    Result<ToolDiscoveryService::Handler> registerPluginWithBookmark(const QString &path, const QString &bookmarkPath,
                                                                     int pluginType);

private:
    HttpClient m_httpClient;
    ToolDiscoveryService m_discoveryService;
};
