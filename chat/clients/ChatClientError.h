#pragma once

#include "base/AppError.h"

#include <QString>

// The failures of the providers' blocking calls, as AppError values in the "chat" domain. The
// code is the Kind, except that an HTTP error's code is its status (100 and up), so the caller
// still has it. The description is the text the chat shows: for a cloud provider's HTTP error
// the provider's own body, so its JSON error reaches the user.
struct ChatClientError {
    enum class Kind {
        badURL = 1, // the base URL doesn't parse
        transport,  // no reply: refused, timed out, cut
        decode,     // a reply that isn't the record it should be
        http,       // a status outside 200 to 299
    };

    static QString domain();
    // A failure without an HTTP status; for Kind::http use httpFailure.
    static AppError make(Kind kind, QString description);
    static AppError httpFailure(int status, QString description);
    static AppError badURL();
    // The Kind of an error made here; transport for any other domain or code.
    static Kind kindOf(const AppError &error);
    // An HTTP error's status, else 0.
    static int httpStatus(const AppError &error);
};
