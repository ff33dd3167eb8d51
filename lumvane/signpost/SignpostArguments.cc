#include "lumvane/signpost/SignpostArguments.h"

namespace lumvane {

SignpostArguments SignpostArguments::mergedOver(const SignpostArguments& fallback) const {
  SignpostArguments merged;
  merged.string1 = string1 ? string1 : fallback.string1;
  merged.string2 = string2 ? string2 : fallback.string2;
  merged.number1 = number1 ? number1 : fallback.number1;
  merged.number2 = number2 ? number2 : fallback.number2;
  merged.attributes = attributes;
  for (const auto& entry : fallback.attributes) {
    bool present = false;
    for (const auto& own : attributes) present = present || own.first == entry.first;
    if (!present) merged.attributes.push_back(entry);
  }
  return merged;
}

void SignpostArguments::applyTo(SignpostObjectProperties* p) const {
  if (string1) {
    p->string1Name = string1->name;
    p->string1Value = string1->value;
  }
  if (string2) {
    p->string2Name = string2->name;
    p->string2Value = string2->value;
  }
  if (number1) {
    p->number1Name = number1->name;
    p->number1Value = number1->value;
  }
  if (number2) {
    p->number2Name = number2->name;
    p->number2Value = number2->value;
  }
}

}  // namespace lumvane
