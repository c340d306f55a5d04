#pragma once

#include <QString>

// Why an import, or the import of one file, failed. The description is a fixed prefix and
// the case's text.
struct ImportError {
    enum class Kind { invalidConfig, invalidBundle, invalidPath, decodingFailed, readFailed, saveFailed, unknown };

    Kind kind = Kind::unknown;
    QString text;

    static ImportError invalidConfig(const QString &text) { return {Kind::invalidConfig, text}; }
    static ImportError invalidBundle(const QString &text) { return {Kind::invalidBundle, text}; }
    static ImportError invalidPath(const QString &text) { return {Kind::invalidPath, text}; }
    static ImportError decodingFailed(const QString &text) { return {Kind::decodingFailed, text}; }
    static ImportError readFailed(const QString &text) { return {Kind::readFailed, text}; }
    static ImportError saveFailed(const QString &text) { return {Kind::saveFailed, text}; }
    // Carries any other error by its description.
    static ImportError unknown(const QString &description) { return {Kind::unknown, description}; }

    // "Invalid configuration: ", "Invalid Bundle: ", "Invalid Path: ", "Decoding Failed: ",
    // "Read Failed: ", "Save Failed: " or "Unknown Error: ", then the text.
    QString description() const;
};
