#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// Runs one program for a script (Kelvara.process and Kelvara.shell) and waits for it.
//
// The executable path is taken as it stands: no look-up in PATH, and a relative path counts
// from the working directory the child starts in (the caller's, or the process's when none
// is given). The child gets the application's environment with
// PATH widened and the developer tool variables set (developerEnvironment), standard input
// from /dev/null, and one pipe each for standard output and standard error, both read while
// the caller waits, so a chatty child never stalls on a full pipe.
//
// The child leads a process group of its own, recorded in ScriptChildProcesses for the
// script call that runs on the calling thread (ScriptWatchdog::current()): what it leaves
// running in the background ends when that call ends. When the call is to stop (its time or
// memory limit, a cancellation, a shutdown) while the child runs, the group is ended at once
// and the outcome is a failure. Outside a call, the group ends as soon as the child has.
//
// Blocks the calling thread until the child has ended and both pipes are read to their end
// (or the call is to stop). Any thread.
class ScriptProcess {
public:
    struct Outcome {
        bool launched = false;
        // The exit status, or the number of the signal that ended the child.
        int status = -1;
        bool exitedNormally = false;
        // Why the launch failed, when it did.
        QString launchError;
        QStringList standardOutput;
        QStringList standardError;

        bool succeeded() const { return launched && exitedNormally && status == 0; }
    };

    static Outcome run(const QString &executablePath, const QStringList &arguments,
                       const QString &workingDirectory = QString());

    // base with PATH = "/usr/local/bin:/usr/bin:/bin:" + base's PATH (or "."), and CC, CXX,
    // CFLAGS, LDFLAGS naming the system's compiler drivers and root.
    static QProcessEnvironment developerEnvironment(const QProcessEnvironment &base);

    // Output as lines: strict UTF-8 (undecodable data gives no lines), split at every line
    // end, each line trimmed, empty lines dropped.
    static QStringList lines(const QByteArray &data);
};
