#pragma once

#include "tools/results/JSONToolResult.h"

#include <QList>
#include <QString>
#include <QVariantMap>
#include <functional>

// One row of the router's table of built-in tool methods: the executor that carries the
// method out, the thread it must run on, and what the router checks before the call.
struct BuiltinToolMethod {
    enum class Thread {
        Caller,  // the engine worker that received the call
        Main,    // a synchronous hop to the main thread; the worker waits for it
    };
    enum class Precheck {
        None,
        FilePath,            // `file_path` a non-empty string, trimmed
        FilePathAndContent,  // as FilePath, then `content` a non-empty string
    };
    using Executor = std::function<JSONToolResult(const QVariantMap &parameters)>;

    QString execMethod;
    QString executorName;
    // What the tool editor offers the method as, for example "Read file from file system
    // (readFile)"; the table's order is the editor's order.
    QString label;
    Thread thread = Thread::Caller;
    Precheck precheck = Precheck::None;
    // Empty while this build has no such executor; the router then answers with an error
    // result that names the tool and the method.
    Executor run;
};

// The built-in methods, keyed by `execMethod` (compared exactly). This is the one place
// where the built-in executors attach: a handler that joins the application fills the
// `run` of its rows in BuiltinToolTable.cpp.
class BuiltinToolTable {
public:
    static const QList<BuiltinToolMethod> &methods();
    // The row of execMethod, or nullptr when the method is not built in.
    static const BuiltinToolMethod *find(const QString &execMethod);
};
