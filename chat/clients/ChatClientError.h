#pragma once

#include <QString>
#include <stdexcept>

// What the providers' blocking calls throw. The description is the text the chat shows:
// for a cloud provider's HTTP error the provider's own body, so its JSON error reaches the user.
class ChatClientError : public std::runtime_error {
public:
    enum class Kind {
        badURL,    // the base URL doesn't parse
        http,      // a status outside 200 to 299
        transport, // no reply: refused, timed out, cut
        decode,    // a reply that isn't the record it should be
    };

    ChatClientError(Kind kind, QString description, int status = 0);

    Kind kind() const { return m_kind; }
    int status() const { return m_status; }
    const QString &description() const { return m_description; }

    static ChatClientError badURL();

private:
    Kind m_kind;
    QString m_description;
    int m_status;
};
