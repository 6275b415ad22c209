// What a function gives, or in words why it gives nothing. No state; any thread.
#pragma once

#include <string>
#include <utility>
#include <variant>

#include "framework/types.h"

struct T_Refusal {
  std::string m_strWhy;
};

// Formatted like printf.
T_Refusal Refuse(const char* i_pFormat, ...) __attribute__((format(printf, 1, 2)));

// A T, or why there is none: it is false then. Without a T it only tells whether all went well.
template <class T = std::monostate>
class CResult {
 public:
  CResult(T i_value = {}) : m_content(std::move(i_value)) {}
  CResult(T_Refusal i_refusal) : m_content(std::move(i_refusal)) {}

  explicit operator Bool() const { return std::holds_alternative<T>(m_content); }
  T& operator*() { return std::get<T>(m_content); }
  T* operator->() { return &std::get<T>(m_content); }
  // Of a false one.
  const T_Refusal& Refusal() const { return std::get<T_Refusal>(m_content); }
  const std::string& Why() const { return Refusal().m_strWhy; }

 private:
  std::variant<T, T_Refusal> m_content;
};
