// kelvara-editor-bridge: the editor's side of the chat's editor bridge, for any editor that can
// run a command. "send" hands text (standard input or a file) to the chat, where it waits above
// the input field; "last" prints the chat's last answer.
#include "chat/session/XcodeBridgeService.h"

#include <QCoreApplication>
#include <QFile>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

namespace {

int usage()
{
    std::fputs("usage: kelvara-editor-bridge send [--wait] [FILE]   hand text (standard input or FILE) to the chat\n"
               "       kelvara-editor-bridge last                   print the chat's last answer\n"
               "With --wait, send waits (up to 10 minutes) for the next answer and prints it.\n",
               stderr);
    return 2;
}

// Ends the event loop when the chat's "response" signal comes.
class ResponseWaiter : public QObject {
    Q_OBJECT
public slots:
    void answered() { QCoreApplication::exit(0); }
};

}  // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    if (args.isEmpty())
        return usage();
    const QString command = args.takeFirst();
    if (command == QLatin1String("last") && args.isEmpty()) {
        QTextStream(stdout) << XcodeBridgeService::readResponse() << Qt::endl;
        return 0;
    }
    if (command != QLatin1String("send"))
        return usage();
    const bool wait = args.removeAll(QStringLiteral("--wait")) > 0;
    if (args.size() > 1)
        return usage();
    QFile input;
    if (args.isEmpty() ? !input.open(stdin, QIODevice::ReadOnly) : (input.setFileName(args.first()), !input.open(QIODevice::ReadOnly))) {
        std::fprintf(stderr, "kelvara-editor-bridge: cannot read %s\n", args.isEmpty() ? "standard input" : qPrintable(args.first()));
        return 1;
    }
    const QString text = QString::fromUtf8(input.readAll());
    if (XcodeBridgeService::normalisedRequest(text).isEmpty()) {
        std::fputs("kelvara-editor-bridge: nothing to send\n", stderr);
        return 1;
    }
    if (!wait) {
        XcodeBridgeService::writeRequest(text);
        return 0;
    }
    // Subscribed before the request goes out, so that a quick answer is not missed.
    ResponseWaiter waiter;
    if (!XcodeBridgeService::subscribe(QStringLiteral("response"), &waiter, SLOT(answered()))) {
        std::fputs("kelvara-editor-bridge: no session bus; the chat cannot be told\n", stderr);
        return 1;
    }
    XcodeBridgeService::writeRequest(text);
    QTimer::singleShot(600 * 1000, &app, [] { QCoreApplication::exit(1); });
    if (QCoreApplication::exec() != 0) {
        std::fputs("kelvara-editor-bridge: no answer came\n", stderr);
        return 1;
    }
    QTextStream(stdout) << XcodeBridgeService::readResponse() << Qt::endl;
    return 0;
}

#include "EditorBridgeMain.moc"
