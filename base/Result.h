#pragma once

#include "base/AppError.h"

#include <utility>
#include <variant>

// The one way the layers above the engine report a failure: a value or an AppError, never
// both. (std::expected would do, but the toolchain this builds on is C++20.)
//
//     Result<QByteArray> read(...);
//     if (const auto data = read(...); !data) show(data.error().description); else use(*data);
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : m_state(std::in_place_index<0>, std::move(value)) {}
    Result(AppError error) : m_state(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return m_state.index() == 0; }
    explicit operator bool() const { return ok(); }

    // Only when ok().
    const T &value() const & { return std::get<0>(m_state); }
    T &value() & { return std::get<0>(m_state); }
    T &&value() && { return std::get<0>(std::move(m_state)); }
    const T &operator*() const & { return value(); }
    T &operator*() & { return value(); }
    const T *operator->() const { return &value(); }
    T *operator->() { return &value(); }
    T valueOr(T fallback) const { return ok() ? value() : std::move(fallback); }

    // Only when !ok().
    const AppError &error() const { return std::get<1>(m_state); }

private:
    std::variant<T, AppError> m_state;
};

// A step that gives nothing back but may fail.
template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(AppError error) : m_failed(true), m_error(std::move(error)) {}

    bool ok() const { return !m_failed; }
    explicit operator bool() const { return ok(); }
    const AppError &error() const { return m_error; }

private:
    bool m_failed = false;
    AppError m_error;
};
