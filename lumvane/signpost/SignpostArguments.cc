#include "lumvane/signpost/SignpostArguments.h"

namespace lumvane {
namespace {

template <typename Slot, typename Value>
void Apply(const std::optional<Slot>& slot, std::optional<std::string>* name,
           std::optional<Value>* value) {
  if (!slot) return;
  *name = slot->name;
  *value = slot->value;
}

}  // namespace

void SignpostArguments::applyTo(SignpostObjectProperties* p) const { applyOver({}, p); }

void SignpostArguments::applyOver(const SignpostArguments& fallback,
                                  SignpostObjectProperties* p) const {
  // Conditional expressions over two lvalues of one type: no slot is copied.
  Apply(string1 ? string1 : fallback.string1, &p->string1Name, &p->string1Value);
  Apply(string2 ? string2 : fallback.string2, &p->string2Name, &p->string2Value);
  Apply(number1 ? number1 : fallback.number1, &p->number1Name, &p->number1Value);
  Apply(number2 ? number2 : fallback.number2, &p->number2Name, &p->number2Value);
}

void SignpostArguments::attributesOver(const SignpostArguments& fallback, Dictionary* out) const {
  for (const auto& [key, value] : attributes) out->set(key, value);
  for (const auto& entry : fallback.attributes) {
    bool present = false;
    for (const auto& own : attributes) present = present || own.first == entry.first;
    if (!present) out->set(entry.first, entry.second);
  }
}

}  // namespace lumvane
