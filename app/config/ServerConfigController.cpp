#include "app/config/ServerConfigController.h"
#include "app/config/ClientConfiguration.h"
#include "app/config/RunningServer.h"

#include "app/config/ConfigurationFingerprint.h"

#include <QJsonDocument>
#include <QJsonObject>

#include "base/DesktopNotifier.h"
#include "base/AppPaths.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "engine/bridge/MCPServerBridge.h"
#include "store/ConfigurationController.h"
#include "store/PersistenceController.h"
#include "store/ServerAccessSettings.h"
#include "store/ServerConfig.h"
#include "store/ServerQueryService.h"
#include "store/StoreContext.h"
#include "tools/router/MCPError.h"
#include "tools/router/MCPServer.h"
#include "tools/plugins/PluginController.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaObject>
#include <QPointer>
#include <QRegularExpression>
#include <QThreadPool>

#include <cstdio>

namespace {

void printConsole(const char *line)
{
    std::fputs(line, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace

ServerConfigController *ServerConfigController::shared()
{
    static ServerConfigController *instance = nullptr;
    if (!instance)
        instance = new ServerConfigController(PersistenceController::shared()->viewContext(),
                                              ConfigurationController::shared(), &MCPServer::shared(),
                                              QCoreApplication::instance());
    return instance;
}

ServerConfigController::ServerConfigController(StoreContext *context, ConfigurationController *exportService,
                                               MCPServer *router, QObject *parent)
    : AbstractController(parent),
      m_context(context),
      m_exportService(exportService),
      m_router(router),
      m_logController(router->logger())
{
    connect(m_context, &StoreContext::objectsDidChange, this, [this] { updateUnsaved(false); }, Qt::QueuedConnection);

    connect(this, &ServerConfigController::saveButtonTapped, this, [this] {
        printConsole("[ServerConfigController] saveButtonTapped");
        save();
    });
    connect(this, &ServerConfigController::revertButtonTapped, this, [this] {
        printConsole("[ServerConfigController] revertButtonTapped");
        revert();
    });
    connect(this, &ServerConfigController::startButtonTapped, this, &ServerConfigController::start);
    connect(this, &ServerConfigController::stopButtonTapped, this, &ServerConfigController::stop);
    // A save anywhere (a screen, an import) and a plug-in change may leave the running
    // server behind what is saved.
    connect(m_context, &StoreContext::didSave, this, [this] {
        if (!m_isServerRunning)
            return;
        refreshSavedFingerprint();
        compareServed();
    });
    connect(PluginController::shared(), &PluginController::pluginsChanged, this, &ServerConfigController::compareServed);

    queueSync();
}

ServerConfigController::~ServerConfigController() = default;

// ---- state ----

void ServerConfigController::setServerConfig(ServerConfig *config)
{
    if (m_serverConfig == config)
        return;
    m_serverConfig = config;
    emit serverConfigChanged();
    emit changed();
}

void ServerConfigController::setHasUnsavedChanges(bool value)
{
    if (m_hasUnsavedChanges == value)
        return;
    m_hasUnsavedChanges = value;
    emit hasUnsavedChangesChanged();
    emit changed();
}

void ServerConfigController::setServerRunning(bool value)
{
    if (m_isServerRunning == value)
        return;
    m_isServerRunning = value;
    // Other Kelvara processes find the server here (kelvara serve --stdio relays to it).
    if (value)
        RunningServer::publish(listeningPort());
    else
        RunningServer::withdraw();
    emit isServerRunningChanged();
    emit changed();
    compareServed();
}

void ServerConfigController::refreshSavedFingerprint()
{
    if (!m_context->hasChanges())
        m_savedStore = ConfigurationFingerprint::ofStore(m_context);
}

QByteArray ServerConfigController::pluginFingerprint() const
{
    return Plugin::encodeList(PluginController::shared()->plugins());
}

void ServerConfigController::compareServed()
{
    const bool outdated = m_isServerRunning &&
                          (m_savedStore != m_servedStore || storedListenAtAll() != m_servedListenAtAll ||
                           pluginFingerprint() != m_servedPlugins);
    if (outdated == m_outdated)
        return;
    m_outdated = outdated;
    emit servedConfigurationChanged();
    emit changed();
}

QString ServerConfigController::importHint() const
{
    if (m_isServerRunning)
        return QStringLiteral("The running server does not serve them yet: choose \u201cApply and restart\u201d on the "
                              "Server screen or in the status bar.");
    return QStringLiteral("Clients get them once the server is started on the Server screen.");
}

QString ServerConfigController::startDisabledReason() const
{
    if (m_isStarting || m_restarting)
        return QStringLiteral("The server is starting.");
    if (m_isServerRunning)
        return m_outdated ? QStringLiteral("The server is running an older configuration: use \u201cApply and restart\u201d.")
                          : QStringLiteral("The server is running.");
    if (m_hasUnsavedChanges)
        return QStringLiteral("Save or revert your changes first: the server starts from the saved configuration.");
    return QString();
}

void ServerConfigController::setStatus(const QString &text)
{
    if (m_serverStatusMessage == text)
        return;
    m_serverStatusMessage = text;
    emit serverStatusMessageChanged();
    emit changed();
}

void ServerConfigController::setStarting(bool value)
{
    if (m_isStarting == value)
        return;
    m_isStarting = value;
    emit isStartingChanged();
    emit changed();
}

void ServerConfigController::applyListenAtAll(bool value)
{
    if (m_listenAtAll == value)
        return;
    m_listenAtAll = value;
    emit listenAtAllChanged();
    emit accessChanged();  // whether a token is asked for follows the bind
    emit changed();
}

void ServerConfigController::setListenAtAll(bool value)
{
    applyListenAtAll(value);
    // The context may have nothing pending: the flag alone makes the screen unsaved.
    updateUnsaved(true);
}

bool ServerConfigController::storedListenAtAll()
{
    return UserDefaults::standard()->value(listenAllDefaultsKey, false).toBool();
}

bool ServerConfigController::canSave() const
{
    return m_hasUnsavedChanges && !m_isServerRunning;
}

bool ServerConfigController::canStart() const
{
    return !m_isServerRunning && !m_isStarting && !m_restarting && !m_hasUnsavedChanges;
}

void ServerConfigController::updateUnsaved(bool force)
{
    setHasUnsavedChanges(m_context->hasChanges() || force);
}

// ---- edit ----

void ServerConfigController::queueSync()
{
    QMetaObject::invokeMethod(this, [this] { sync(); }, Qt::QueuedConnection);
}

void ServerConfigController::sync()
{
    const bool contextWasClean = !m_context->hasChanges();
    ServerConfig *config = ServerQueryService::fetchOrCreateServerConfig(m_context).valueOr(nullptr);
    // A fresh store's row holds nothing but the defaults: write it at once, so that a first
    // start does not wait for a Save of values the user never touched. Pending edits of
    // anybody else's are left for their owner to save or revert.
    if (config && config->isInserted() && contextWasClean)
        (void)m_context->save();  // a failure shows on the next explicit save
    setServerConfig(config);
    setServerRunning(m_router->bridge()->isRunning());
    if (m_isServerRunning)
        setStatus(statusRunning);
    else if (!m_isStarting && m_serverStatusMessage.isEmpty())
        setStatus(statusStopped);
    // Otherwise the status stays, so that a failure text survives a sync.
    applyListenAtAll(storedListenAtAll());
}

bool ServerConfigController::save()
{
    if (!m_context->save()) {
        showAlert(QStringLiteral("Error"), saveFailedText);
        return false;
    }
    UserDefaults::standard()->setValue(listenAllDefaultsKey, m_listenAtAll);
    updateUnsaved(false);
    compareServed();
    return true;
}

void ServerConfigController::revert()
{
    m_context->rollback();
    queueSync();
    applyListenAtAll(storedListenAtAll());
    updateUnsaved(false);
}

std::optional<qint16> ServerConfigController::parsePort(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("^[+-]?[0-9]+$"));
    if (!pattern.match(text).hasMatch())
        return std::nullopt;
    bool ok = false;
    const qlonglong value = text.toLongLong(&ok, 10);
    if (!ok || value < -32768 || value > 32767)
        return std::nullopt;
    return static_cast<qint16>(value);
}

void ServerConfigController::setPort(const QString &text)
{
    if (!m_serverConfig)
        return;
    const std::optional<qint16> port = parsePort(text);
    if (!port) {
        showAlert(QStringLiteral("Error"), invalidPortText);
        return;
    }
    if (*port == m_serverConfig->port())
        return;
    m_serverConfig->setPort(*port);
    updateUnsaved(true);
}

// ---- start and stop ----

void ServerConfigController::start()
{
    // A second press while a start is under way would only meet a listener being opened.
    if (m_isServerRunning || m_isStarting)
        return;

    LogController *logger = m_logController;
    QMetaObject::invokeMethod(logger, [logger] { logger->clear(); }, Qt::QueuedConnection);

    // A failed save raises its alert; the start goes on with what the store holds.
    if (m_hasUnsavedChanges || m_context->hasChanges())
        save();

    setStatus(statusStarting);
    setStarting(true);
    QMetaObject::invokeMethod(this, [this] { runStartPipeline(); }, Qt::QueuedConnection);
}

void ServerConfigController::runStartPipeline()
{
    setStatus(statusExporting);
    const Result<ExportResult> exported = m_exportService->exportConfiguration();
    std::optional<QString> exportFailure;
    if (!exported)
        exportFailure = exported.error().description;
    else if (exported->hasErrors())
        exportFailure = QStringLiteral("Export completed with errors: ") + exported->allErrors().join(QStringLiteral(", "));
    // Any failure of a single record stops the start; the records are listed in the log,
    // and kept for a caller without the log (kelvara serve's standard error).
    m_startFailureDetails.clear();
    if (exportFailure) {
        m_startFailureDetails = exported ? exported->allErrors() : QStringList{*exportFailure};
        failStart(MCPError::unableToSaveServerConfiguration().localizedDescription());
        setStarting(false);
        return;
    }

    // What this start serves; the saved configuration is compared with it from now on.
    refreshSavedFingerprint();
    m_servedStore = ConfigurationFingerprint::ofStore(m_context);
    m_servedPlugins = pluginFingerprint();
    m_servedListenAtAll = m_listenAtAll;

    setStatus(statusCreating);
    if (!m_serverConfig) {
        failStart(MCPError::unableToFindServerConfiguration().localizedDescription());
        setStarting(false);
        return;
    }

    setStatus(statusStartingServer);
    MCPServerBridge *bridge = m_router->bridge();
    // Title and instructions of the row reach clients; the name and version announced are
    // the bridge's own.
    MCPServerConfiguration configuration;
    configuration.port = static_cast<uint16_t>(m_serverConfig->port());
    configuration.serverInfo.setName(m_serverConfig->serverName().value_or(QString()));
    configuration.serverInfo.setTitle(m_serverConfig->serverTitle().value_or(QString()));
    configuration.serverInfo.setVersion(m_serverConfig->serverVersion().value_or(QString()));
    configuration.instructions = m_serverConfig->instructions();
    bridge->configureWithConfiguration(configuration);
    // The row's name and version are what clients see in serverInfo; empty ones keep the
    // bridge's defaults.
    static const QString defaultName = bridge->serverName();
    static const QString defaultVersion = bridge->serverVersion();
    const QString name = m_serverConfig->serverName().value_or(QString()).trimmed();
    const QString version = m_serverConfig->serverVersion().value_or(QString()).trimmed();
    bridge->setServerName(name.isEmpty() ? defaultName : name);
    bridge->setServerVersion(version.isEmpty() ? defaultVersion : version);

    BridgeError startError;
    const bool listenAtAll = m_listenAtAll;
    bridge->setAccessPolicy(ServerAccessSettings::policy(listenAtAll, m_runOrigins, m_runTokenRequired, m_runKeepAlive));
    if (!bridge->startOnPort(m_serverConfig->port(), listenAtAll, &startError)) {
        failStart(startError.description);
        setStarting(false);
        return;
    }
    m_router->setListenAtAll(listenAtAll);
    QMetaObject::invokeMethod(
        this,
        [this] {
            setServerRunning(true);
            setStatus(statusRunning);
            postNotification();
        },
        Qt::QueuedConnection);
    setStarting(false);
}

void ServerConfigController::failStart(const QString &description)
{
    const QString text = statusFailedPrefix + description;
    QMetaObject::invokeMethod(
        this,
        [this, text] {
            setStatus(text);
            showAlert(QStringLiteral("Error"), text);
        },
        Qt::QueuedConnection);
}

void ServerConfigController::stop()
{
    if (!m_isServerRunning)
        return;
    setStatus(statusStopping);
    MCPServerBridge *bridge = m_router->bridge();
    QThreadPool::globalInstance()->start([bridge] { bridge->stop(); });
    // Not waiting for the engine: a quick start after this may still meet the old listener.
    QMetaObject::invokeMethod(
        this,
        [this] {
            setServerRunning(false);
            setStatus(statusStopped);
            postNotification();
        },
        Qt::QueuedConnection);
}

void ServerConfigController::applyAndRestart()
{
    if (m_restarting || m_isStarting)
        return;
    if (!m_isServerRunning) {
        start();
        return;
    }
    m_restarting = true;
    setStatus(statusStopping);
    emit changed();
    MCPServerBridge *bridge = m_router->bridge();
    QPointer<ServerConfigController> self(this);
    // The same port again: the old listener must be closed before the new one opens.
    QThreadPool::globalInstance()->start([bridge, self] {
        bridge->stop();
        QMetaObject::invokeMethod(
            qApp,
            [self] {
                if (!self)
                    return;
                self->m_restarting = false;
                self->setServerRunning(false);
                self->setStatus(statusStopped);
                self->start();
            },
            Qt::QueuedConnection);
    });
}

void ServerConfigController::postNotification()
{
    DesktopNotifier *notifier = m_notifier ? m_notifier : DesktopNotifier::shared();
    notifier->notify(AppPaths::displayName(), m_serverStatusMessage);
}

int ServerConfigController::listeningPort() const
{
    if (m_isServerRunning) {
        if (const int port = m_router->bridge()->listeningPort(); port >= 0)
            return port;
    }
    return m_serverConfig ? static_cast<quint16>(m_serverConfig->port()) : 0;
}

QString ServerConfigController::accessToken() const
{
    return ServerAccessSettings::token();
}

void ServerConfigController::renewAccessToken()
{
    ServerAccessSettings::renewToken();
    emit accessChanged();
}

bool ServerConfigController::requireToken() const
{
    return ServerAccessSettings::requireToken();
}

void ServerConfigController::setRequireToken(bool value)
{
    if (value == requireToken())
        return;
    ServerAccessSettings::setRequireToken(value);
    if (!value)
        showAlert(QStringLiteral("Warning"), ServerAccessSettings::tokenOffWarning);
    emit accessChanged();
}

bool ServerConfigController::tokenOnLoopback() const
{
    return ServerAccessSettings::tokenOnLoopback();
}

void ServerConfigController::setTokenOnLoopback(bool value)
{
    if (value == tokenOnLoopback())
        return;
    ServerAccessSettings::setTokenOnLoopback(value);
    if (!value)
        showAlert(QStringLiteral("Warning"), ServerAccessSettings::loopbackTokenOffWarning);
    emit accessChanged();
}

bool ServerConfigController::tokenRequired() const
{
    return ServerAccessSettings::tokenRequired(m_listenAtAll, m_runTokenRequired);
}

QString ServerConfigController::clientConfiguration() const
{
    const QJsonObject entry = ClientConfiguration::httpEntry(
        ClientConfiguration::clientHost(m_listenAtAll), listeningPort(),
        tokenRequired() ? std::optional<QString>(accessToken()) : std::nullopt);
    return QString::fromUtf8(QJsonDocument(ClientConfiguration::document(entry)).toJson(QJsonDocument::Compact));
}

QStringList ServerConfigController::allowedOrigins() const
{
    return ServerAccessSettings::allowedOrigins();
}

bool ServerConfigController::setAllowedOriginsText(const QString &text)
{
    QStringList origins;
    for (const QString &part : text.split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts)) {
        if (const std::optional<QString> problem = ServerAccessSettings::originProblem(part)) {
            showAlert(QStringLiteral("Error"), *problem);
            return false;
        }
        origins.append(part);
    }
    ServerAccessSettings::setAllowedOrigins(origins);
    emit accessChanged();
    return true;
}

void ServerConfigController::setRunOptions(const QStringList &extraOrigins, std::optional<bool> tokenRequired,
                                           std::optional<bool> keepAlive)
{
    m_runOrigins = extraOrigins;
    m_runTokenRequired = tokenRequired;
    m_runKeepAlive = keepAlive;
    emit accessChanged();
}
