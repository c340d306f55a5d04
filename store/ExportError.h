#pragma once

#include <QString>

// Why an export, or the export of one record, failed. The description is a fixed prefix
// and the case's text.
struct ExportError {
    enum class Kind { invalidConfig, invalidBundle, invalidPath, encodingFailed, writeFailed, unknown };

    Kind kind = Kind::unknown;
    QString text;

    static ExportError invalidConfig(const QString &text) { return {Kind::invalidConfig, text}; }
    static ExportError invalidBundle(const QString &text) { return {Kind::invalidBundle, text}; }
    static ExportError invalidPath(const QString &text) { return {Kind::invalidPath, text}; }
    static ExportError encodingFailed(const QString &text) { return {Kind::encodingFailed, text}; }
    static ExportError writeFailed(const QString &text) { return {Kind::writeFailed, text}; }
    // Carries any other error by its description.
    static ExportError unknown(const QString &description) { return {Kind::unknown, description}; }

    // "Invalid configuration: ", "Invalid Bundle: ", "Invalid Path: ", "Encoding Failed: ",
    // "Write Failed: " or "Unknown Error: ", then the text.
    QString description() const;
};
