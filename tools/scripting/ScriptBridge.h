#pragma once

#include "engine/CallReporter.h"
#include "tools/results/JSONToolResult.h"

#include <QString>
#include <QStringList>
#include <QVariantList>
#include <memory>
#include <mutex>
#include <optional>

class BookmarkController;
class HttpClient;
class LogController;
class ScriptContext;

// The host object of one script call, seen by the script as the global `Kelvara`. Made
// anew for each call; the JavaScript object holds it (ScriptBridgeExports binds the
// methods), and the runtime keeps its own reference to read the result. Its reference to
// the context is weak, so that the two do not keep each other alive.
//
// The methods run on the script's thread and block it, HTTP and child processes included.
// Two calls of one session may share a context and so reach one bridge from two threads;
// the result and the HTTP bridge are guarded for that.
//
// A relative path given to a file method, process or downloadFile names a file in the
// script's module folder (its own folder), and child processes start there: the process's
// working directory is shared by every thread and is never changed for a script.
//
// File methods act only where FileAccessPolicy allows a script (inside what the user
// granted; Kelvara's resources and script sources for reading) and bracket their work with
// the security controller's beginAccess/endAccess. A refusal is logged like any failure.
class ScriptBridge {
public:
    explicit ScriptBridge(const QString &sid);
    ~ScriptBridge();

    QString sid() const { return m_sid; }
    // For a bridge made ahead of its call.
    void setSid(const QString &sid) { m_sid = sid; }
    // The folder relative paths are resolved against; empty leaves them as they are.
    void setModuleDir(const QString &dir) { m_moduleDir = dir; }
    QString moduleDir() const { return m_moduleDir; }
    // An absolute path as it stands, a relative one inside the module folder.
    QString resolvedPath(const QString &path) const;
    // Where the call's log messages and progress go to the calling client; null outside a
    // request (the script editor, tests). loggerName names the script to the client.
    void setReporter(std::shared_ptr<MCP::CallReporter> reporter, const QString &loggerName);
    std::optional<JSONToolResult> toolResult() const;

    void setJSContext(const std::shared_ptr<ScriptContext> &context) { m_jsContext = context; }
    std::shared_ptr<ScriptContext> jsContext() const { return m_jsContext.lock(); }

    // The methods scripts call, in the order of ScriptBridgeExports. A failure never
    // raises a JavaScript exception: it shows in the result and in the log.

    // Logs at the level named by the word ("debug", "error", "warning", else info).
    void log(const QString &level, int code, const QString &message);

    // The levels a message to the client may have, least severe first.
    static const QStringList &clientLogLevels();
    // A message for the calling client: level is one of clientLogLevels() (else false and
    // nothing is sent). The client gets data, or the text when there is no data; an object
    // gets the text added as "message", any other data goes under "data" beside it. Without
    // a reporter the message goes to Kelvara's log instead. Nothing once the call is
    // cancelled or stopped.
    bool logToClient(const QString &level, const QString &text, const std::optional<MCP::JSONValue> &data);
    // What logToClient sends as the message's data.
    static MCP::JSONValue clientLogData(const QString &text, const std::optional<MCP::JSONValue> &data);
    // Progress for the calling client (when it asked for it); ignored without a reporter and
    // once the call is cancelled or stopped.
    void progress(double progress, std::optional<double> total, const QString &message);
    // Ends the stream that carries the call's messages to the client, which comes back after
    // `retry` for the rest and the answer; false where the client cannot (see CallReporter).
    bool closeStream(std::chrono::milliseconds retry);
    // What the calling client answered to elicit or sample: its result, or why there is
    // none, in a line for the script's exception.
    struct ClientAnswer {
        std::optional<MCP::JSONValue> result;
        QString error;
    };
    // elicitation/create with a message and the flat schema of what to ask. The result has
    // "action" ("accept", "decline" or "cancel") and, when accepted, "content".
    ClientAnswer elicit(const QString &message, const MCP::JSONValue &requestedSchema);
    // sampling/createMessage with the messages and the options (maxTokens, systemPrompt, …)
    // beside them; maxTokens is 1000 when not given. The result is the client's message
    // (role, content, model, stopReason).
    ClientAnswer sample(const MCP::JSONValue &messages, const MCP::JSONValue &options);
    // Why a requestedSchema is not one the protocol lets a client be asked with (an object
    // of flat properties: string, number, integer, boolean, or an array of enum strings), or
    // nothing when it is.
    static std::optional<QString> elicitationSchemaFault(const MCP::JSONValue &schema);
    // The text of a file, read as UTF-8, or nothing (logged).
    std::optional<QString> openFile(const QString &path);
    std::optional<QString> readFile(const QString &path);
    // The file's bytes as base64 (an image, audio), or nothing (logged).
    std::optional<QString> readFileBase64(const QString &path);
    // Turns a script's JSON result text into the call's result; a later call replaces an
    // earlier result.
    void setToolResult(const QString &json);
    bool fileExists(const QString &path);
    // Writes content as UTF-8 by way of a temporary file; creates no folders.
    bool saveFile(const QString &path, const QString &content);
    // Names of the entries (hidden ones too), unsorted; empty on failure (logged).
    QStringList listDirectory(const QString &path);
    // Creates the folder and its missing parents; an existing folder is success.
    bool createDirectory(const QString &path);
    // Removes a file, or a folder with its contents.
    bool deleteFile(const QString &path);
    // The user's documents folder, or home when the system names none.
    QString getDocumentsPath() const;
    QString getTempPath() const;

    // JSON text of the HttpClientResult. A null QString is an absent argument.
    QString httpGet(const QString &url, const QString &queryJSON);
    // The fourth argument becomes query items; scripts set no headers here.
    QString httpRequest(const QString &method, const QString &url, const QString &body, const QString &paramsJSON);
    QString httpPost(const QString &url, const QString &body, const QString &headersJSON);
    bool downloadFile(const QString &url, const QString &destination);
    // Made on first use, with a 30-second time-out.
    HttpClient &httpClient();

    // The first resource (by name) whose name contains name, as pretty JSON text with
    // sorted keys, or "" (logged). Reads the store on the main thread.
    QString resourceConfig(const QString &name);
    // The prompt named exactly name, in the same form, or "".
    QString promptConfig(const QString &name);

    // Runs the program with the string elements of arguments (others are dropped), puts
    // its output lines into the globals stdoutName and stderrName, and tells whether it
    // exited with 0.
    bool process(const QString &path, const QVariantList &arguments, const QString &stdoutName,
                 const QString &stderrName);
    // process("/bin/sh", ["-c", command], "stdOut", "stdErr").
    bool shell(const QString &command);
    // Sets the two globals of the script's context to arrays of strings.
    void injectOutputArrays(const QStringList &standardOutput, const QStringList &standardError,
                            const QString &stdoutName, const QString &stderrName);

private:
    // True once the call is cancelled or its watchdog stopped it: it reports nothing more.
    bool callEnded() const;
    // Sends a request to the calling client and waits for its answer within the call's
    // limits; `who` names the host function in the errors.
    ClientAnswer askClient(const QString &who, const std::string &capability, const std::string &method,
                           const MCP::JSONValue &params);

    QString m_sid;
    QString m_moduleDir;
    std::shared_ptr<MCP::CallReporter> m_reporter;
    std::string m_loggerName;
    std::weak_ptr<ScriptContext> m_jsContext;
    LogController *m_logger;
    BookmarkController *m_security;

    mutable std::mutex m_resultMutex;
    std::optional<JSONToolResult> m_toolResult;

    std::once_flag m_httpClientOnce;
    std::unique_ptr<HttpClient> m_httpClient;
};
