#include "app/PluginCommand.h"

#include "app/ChildProcessPluginInspector.h"
#include "tools/plugins/PluginController.h"
#include "tools/plugins/PluginInspector.h"
#include "app/plugins/PluginTexts.h"
#include "tools/plugins/ToolDiscoveryService.h"
#include "tools/security/BookmarkController.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>
#include <QUrl>

#include <cstdio>
#include <unistd.h>

namespace {

QString absolutePlugin(const QString &path)
{
    QString absolute = QFileInfo(path).absoluteFilePath();
    while (absolute.size() > 1 && absolute.endsWith(QLatin1Char('/')))
        absolute.chop(1);
    return absolute;
}

// What the window's alert would say: "Error: ..." or "Information: ...".
QString alertText(const PluginRefusal &refusal)
{
    return refusal.title() + QStringLiteral(": ") + refusal.message;
}

}  // namespace

bool PluginCommand::isYes(const QString &answer)
{
    const QString word = answer.trimmed().toLower();
    return word == QLatin1String("y") || word == QLatin1String("yes");
}

QString PluginCommand::describe(const Plugin &plugin)
{
    QString text = PluginTexts::approvalTitle + QStringLiteral("\n\n") + PluginTexts::approvalInformation +
                   QLatin1Char('\n');
    auto row = [&text](const char *label, const QString &value) {
        text += QStringLiteral("  %1 %2\n").arg(QString::fromLatin1(label).leftJustified(14), value);
    };
    const PluginDescriptor d = plugin.toolDescriptor.value_or(PluginDescriptor{});
    row("Name:", plugin.displayName());
    row("Version:", d.version);
    row("Author:", d.author);
    row("Description:", d.toolDescription);
    row("Identifier:", d.toolIdentifier);
    row("Entry point:", d.toolEntryPoint);
    row("ABI version:", QString::number(d.abiVersion));
    row("Tool version:", QString::number(d.toolVersion));
    row("Path:", plugin.path);
    row("Capabilities:", d.capabilitiesJSON.isEmpty() ? PluginTexts::noCapabilities : d.capabilitiesJSON);
    return text;
}

int PluginCommand::add(PluginController *controller, const QString &path, bool assumeYes, QTextStream &in,
                       QTextStream &out, QTextStream &err)
{
    const QString file = absolutePlugin(path);
    PluginRefusal refusal;
    const std::optional<Plugin> pending = controller->prepareRegistration(QUrl::fromLocalFile(file), &refusal);
    if (!pending) {
        err << "kelvara plugin add: " << alertText(refusal) << Qt::endl;
        return 1;
    }

    out << describe(*pending) << '\n' << PluginTexts::inspectionNote << '\n' << PluginTexts::inProcessWarning << "\n\n";
    if (!assumeYes) {
        out << PluginTexts::approveButton << "? [y/N] " << Qt::flush;
        const QString answer = in.readLine();
        // A terminal echoes the typed line break; piped input does not.
        if (!::isatty(STDIN_FILENO))
            out << '\n';
        if (!isYes(answer)) {
            err << "kelvara plugin add: registration denied; nothing was registered" << Qt::endl;
            return 1;
        }
    }
    if (const std::optional<PluginRefusal> refused = controller->registerPlugin(*pending)) {
        err << "kelvara plugin add: " << alertText(*refused) << Qt::endl;
        return 1;
    }
    if (!controller->plugin(pending->id)) {
        err << "kelvara plugin add: '" << pending->displayName() << "' was not registered" << Qt::endl;
        return 1;
    }
    out << "Registered plugin: " << pending->displayName() << " (" << pending->path << ")\n"
        << "It is disabled. Enable it for a run in the window's Plugin Manager, or with\n"
        << "  kelvara serve --enable-plugin " << pending->path << Qt::endl;
    return 0;
}

int PluginCommand::list(PluginController *controller, QTextStream &out)
{
    const QList<Plugin> plugins = controller->plugins();
    if (plugins.isEmpty()) {
        out << PluginTexts::noPlugins << Qt::endl;
        return 0;
    }
    for (const Plugin &plugin : plugins) {
        const QString version = plugin.toolDescriptor ? plugin.toolDescriptor->version : QString();
        out << plugin.displayName() << '\t' << version << '\t' << plugin.path << '\n';
    }
    out << Qt::flush;
    return 0;
}

std::optional<QString> PluginCommand::enableForRun(PluginController *controller, const QString &path, QString *reason)
{
    auto fail = [reason](const QString &text) -> std::optional<QString> {
        if (reason)
            *reason = text;
        return std::nullopt;
    };
    const QString file = absolutePlugin(path);
    if (!QFileInfo::exists(file))
        return fail(QStringLiteral("Plugin file not found: ") + file);
    const int type = PluginController::pluginTypeForExtension(file);
    if (type == CustomToolHandler::Framework)
        return fail(QStringLiteral("Unknown plugin type: ") + PluginController::extensionOf(file));

    // Which registered plug-in the file stands for: the name in its descriptor, read in a
    // child process, so that an unregistered library's constructors never run in the server.
    QString name;
    {
        if (PluginInspector *inspector = PluginInspector::shared()) {
            const Result<ToolDescriptor> descriptor = inspector->inspect(file, type);
            if (!descriptor)
                return fail(QStringLiteral("Failed to load plugin: ") +
                            ToolDiscoveryService::failureDescription(descriptor.error()));
            name = descriptor->name;
        } else {
            const Result<std::unique_ptr<CustomToolHandler>> probe = controller->bridge().loadPlugin(file, type);
            if (!probe || !(*probe)->getToolDescriptor())
                return fail(QStringLiteral("Failed to load plugin: ") +
                            ToolDiscoveryService::failureDescription(probe ? AppError{} : probe.error()));
            name = (*probe)->getToolDescriptor()->name;
        }
    }
    const std::optional<Plugin> registered = controller->pluginNamed(name);
    if (!registered)
        return fail(QStringLiteral("the plugin '%1' (%2) is not registered; approve it in the Plugin Manager or run "
                                   "'kelvara plugin add %2' first")
                        .arg(name, file));

    if (const std::optional<PluginRefusal> refused = controller->enablePlugin(*registered, QUrl::fromLocalFile(file)))
        return fail(alertText(*refused));
    const std::optional<Plugin> now = controller->plugin(registered->id);
    if (!now || !now->isEnabled)
        return fail(QStringLiteral("the plugin '%1' could not be enabled").arg(name));
    return name;
}

int PluginCommand::main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName(QStringLiteral("Kelvara"));
    QTextStream in(stdin);
    QTextStream out(stdout);
    QTextStream err(stderr);

    const QStringList arguments = app.arguments().mid(2);
    auto usage = [&err](const QString &problem) {
        err << "kelvara plugin: " << problem << "\nTry 'kelvara plugin --help'." << Qt::endl;
        return 2;
    };
    if (arguments.isEmpty())
        return usage(QStringLiteral("a command is needed: add or list"));
    if (arguments.contains(QLatin1String("-h")) || arguments.contains(QLatin1String("--help"))) {
        out << usageText << Qt::flush;
        return 0;
    }

    const QString command = arguments.first();
    // Not for people: the child process that reads a plug-in's descriptor for "add".
    if (command == QLatin1String("inspect") && arguments.size() == 3)
        return ChildProcessPluginInspector::runChild(arguments.at(2), arguments.at(1).toInt());
    // "add" reads the descriptor in such a child, so nothing of the library runs in this
    // process before the answer.
    static ChildProcessPluginInspector inspector(QCoreApplication::applicationFilePath());
    PluginInspector::setShared(&inspector);
    if (command == QLatin1String("list")) {
        if (arguments.size() > 1)
            return usage(QStringLiteral("unknown argument '%1'").arg(arguments.at(1)));
        return list(PluginController::shared(), out);
    }
    if (command != QLatin1String("add"))
        return usage(QStringLiteral("unknown command '%1'").arg(command));

    bool assumeYes = false;
    QStringList paths;
    for (const QString &argument : arguments.mid(1)) {
        if (argument == QLatin1String("--yes") || argument == QLatin1String("-y"))
            assumeYes = true;
        else if (argument.startsWith(QLatin1Char('-')) && argument.size() > 1)
            return usage(QStringLiteral("unknown argument '%1'").arg(argument));
        else
            paths.append(argument);
    }
    if (paths.size() != 1)
        return usage(QStringLiteral("add needs exactly one plugin file"));
    return add(PluginController::shared(), paths.first(), assumeYes, in, out, err);
}
