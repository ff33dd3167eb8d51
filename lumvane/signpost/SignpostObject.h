// One signpost item with its identity and its telemetry arguments. Objects
// are immutable once built and shared as std::shared_ptr<const ...>: the
// reporting queue reads an object long after the extractor delivered it.
#pragma once

#include <optional>
#include <string>

#include "lumvane/signpost/Number.h"
#include "lumvane/signpost/VantrelObject.h"

namespace lumvane {

// The properties every signpost object carries. Every string may be absent
// (a log can lack any of them); a number keeps the kind it was logged with.
struct SignpostObjectProperties {
  std::optional<std::string> subsystem;
  std::optional<std::string> category;
  std::optional<std::string> name;
  std::optional<std::string> string1Name;
  std::optional<std::string> string1Value;
  std::optional<std::string> string2Name;
  std::optional<std::string> string2Value;
  std::optional<std::string> number1Name;
  std::optional<Number> number1Value;
  std::optional<std::string> number2Name;
  std::optional<Number> number2Value;
  float durationSeconds = 0.0f;
  bool telemetryEnabled = false;
};

class SignpostObject : public VantrelObject {
 public:
  explicit SignpostObject(SignpostObjectProperties properties)
      : p_(std::move(properties)) {}

  const std::optional<std::string>& subsystem() const { return p_.subsystem; }
  const std::optional<std::string>& category() const { return p_.category; }
  const std::optional<std::string>& name() const { return p_.name; }
  const std::optional<std::string>& string1Name() const { return p_.string1Name; }
  const std::optional<std::string>& string1Value() const { return p_.string1Value; }
  const std::optional<std::string>& string2Name() const { return p_.string2Name; }
  const std::optional<std::string>& string2Value() const { return p_.string2Value; }
  const std::optional<std::string>& number1Name() const { return p_.number1Name; }
  const std::optional<Number>& number1Value() const { return p_.number1Value; }
  const std::optional<std::string>& number2Name() const { return p_.number2Name; }
  const std::optional<Number>& number2Value() const { return p_.number2Value; }
  float durationSeconds() const { return p_.durationSeconds; }
  bool telemetryEnabled() const { return p_.telemetryEnabled; }
  const SignpostObjectProperties& properties() const { return p_; }

  // The kind of item, as reported under "IntervalType".
  virtual const char* signpostType() const { return "SignpostObject"; }

  // The payload keys every signpost shares: identity, named arguments,
  // "IntervalType" and "DurationInSeconds".
  std::optional<Dictionary> dovetelPayload() const override;

 private:
  const SignpostObjectProperties p_;
};

}  // namespace lumvane
