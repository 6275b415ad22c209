// What a function gives, or in words why it gives nothing. Any thread.
#pragma once

#include <string>
#include <utility>
#include <variant>

#include "framework/types.h"

struct T_Refusal {
  std::string m_strWhy;     // without the path; it may follow "picture <path> is not shown: "
  Bool m_bOverlay = false;  // the overlay is refused; the picture may do without
};

// Formatted like printf; cut at 511 bytes.
T_Refusal Refuse(const char* i_pFormat, ...) __attribute__((format(printf, 1, 2)));

// A T, or why there is none: then it is false. Without a T it only tells whether all went well.
template <class T = std::monostate>
class [[nodiscard]] CResult {
 public:
  CResult(T i_value = {}) : m_content(std::move(i_value)) {}
  CResult(T_Refusal i_refusal) : m_content(std::move(i_refusal)) {}

  explicit operator Bool() const { return std::holds_alternative<T>(m_content); }
  // Of a true one.
  T& operator*() { return std::get<T>(m_content); }
  const T& operator*() const { return std::get<T>(m_content); }
  T* operator->() { return &std::get<T>(m_content); }
  const T* operator->() const { return &std::get<T>(m_content); }
  // Of a false one.
  const T_Refusal& Refusal() const { return std::get<T_Refusal>(m_content); }
  // Its words; empty for a true one.
  std::string Why() const { return *this ? "" : Refusal().m_strWhy; }

 private:
  std::variant<T, T_Refusal> m_content;
};
