#pragma once

#include "base/AppError.h"

#include <QString>

// Why an export or an import failed, or the export or import of one record. Its
// description is a fixed prefix and the case's text; as an AppError (what the public
// operations return) it keeps the kind as its code in the "Kelvara.Transfer" domain.
struct TransferError {
    enum class Kind {
        invalidConfig,
        invalidBundle,
        invalidPath,
        encodingFailed,  // export
        writeFailed,     // export
        decodingFailed,  // import
        readFailed,      // import
        saveFailed,      // import
        unknown
    };

    Kind kind = Kind::unknown;
    QString text;

    static TransferError invalidConfig(const QString &text) { return {Kind::invalidConfig, text}; }
    static TransferError invalidBundle(const QString &text) { return {Kind::invalidBundle, text}; }
    static TransferError invalidPath(const QString &text) { return {Kind::invalidPath, text}; }
    static TransferError encodingFailed(const QString &text) { return {Kind::encodingFailed, text}; }
    static TransferError writeFailed(const QString &text) { return {Kind::writeFailed, text}; }
    static TransferError decodingFailed(const QString &text) { return {Kind::decodingFailed, text}; }
    static TransferError readFailed(const QString &text) { return {Kind::readFailed, text}; }
    static TransferError saveFailed(const QString &text) { return {Kind::saveFailed, text}; }
    // Carries any other error by its description.
    static TransferError unknown(const QString &description) { return {Kind::unknown, description}; }

    // "Invalid configuration: ", "Invalid Bundle: ", "Invalid Path: ", "Encoding Failed: ",
    // "Write Failed: ", "Decoding Failed: ", "Read Failed: ", "Save Failed: " or
    // "Unknown Error: ", then the text.
    QString description() const;

    static inline const QString domain = QStringLiteral("Kelvara.Transfer");
    AppError toAppError() const { return AppError{domain, int(kind), description()}; }
    operator AppError() const { return toAppError(); }
    // Whether an AppError is this kind of transfer error.
    static bool is(const AppError &error, Kind kind) { return error.domain == domain && error.code == int(kind); }
};
