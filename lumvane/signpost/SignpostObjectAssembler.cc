#include "lumvane/signpost/SignpostObjectAssembler.h"

#include "lumvane/filter/LVLog.h"

namespace lumvane {
namespace {

// The entry's own event object with its arguments.
std::shared_ptr<const SignpostEvent> MakeEvent(const SignpostEntry& e) {
  SignpostObjectProperties p;
  p.subsystem = e.subsystem;
  p.category = e.category;
  p.name = e.name;
  e.arguments.applyTo(&p);
  p.durationSeconds = 0.0f;
  p.telemetryEnabled = e.telemetry;
  return std::make_shared<const SignpostEvent>(std::move(p), e.processName, e.processImagePath);
}

std::optional<std::string> Copy(const std::string* interned) {
  return interned ? std::optional<std::string>(*interned) : std::nullopt;
}

// The begin's event object, made from what the open begin kept.
std::shared_ptr<const SignpostEvent> MakeBeginEvent(const OpenSignpostInterval& open) {
  SignpostObjectProperties p;
  p.subsystem = Copy(open.subsystem);
  p.category = Copy(open.category);
  p.name = Copy(open.name);
  open.arguments.applyTo(&p);
  p.durationSeconds = 0.0f;
  p.telemetryEnabled = open.telemetryEnabled;
  return std::make_shared<const SignpostEvent>(std::move(p), Copy(open.processName),
                                               Copy(open.processImagePath));
}

}  // namespace

SignpostObjectAssembler::SignpostObjectAssembler(size_t maxOpen, Callbacks callbacks,
                                                 LogStoreReadStatistics* stats)
    : callbacks_(callbacks), stats_(stats), table_(maxOpen, &strings_) {}

void SignpostObjectAssembler::add(const SignpostEntry& e) {
  switch (e.type) {
    case SignpostEntry::Type::Event:
      emitEvent(e);
      break;
    case SignpostEntry::Type::Begin:
      begin(e);
      break;
    case SignpostEntry::Type::End:
      end(e);
      break;
  }
}

void SignpostObjectAssembler::finish() {
  stats_->unclosedBegins = table_.openCount();
  stats_->droppedOpenBegins = table_.droppedCount();
  table_.clear();
}

void SignpostObjectAssembler::emitEvent(const SignpostEntry& e) {
  std::shared_ptr<const SignpostEvent> event = MakeEvent(e);
  table_.countFrame(e);
  ++stats_->events;
  if (callbacks_.event && *callbacks_.event) (*callbacks_.event)(std::move(event));
}

void SignpostObjectAssembler::begin(const SignpostEntry& e) {
  const uint64_t droppedBefore = table_.droppedCount();
  if (!table_.open(e)) {
    ++stats_->duplicateBegins;
    return;
  }
  if (droppedBefore == 0 && table_.droppedCount() != 0) {
    LVLog().info("Open signpost intervals reached the cap of %zu: dropping the earliest begins",
                 table_.openCount());
  }
}

void SignpostObjectAssembler::end(const SignpostEntry& e) {
  const OpenSignpostInterval* open = table_.close(e);
  if (!open) {
    ++stats_->unmatchedEnds;
    return;
  }
  const int64_t nanoseconds = SignpostTime::elapsedNanoseconds(open->beginTime, e.time);
  if (nanoseconds <= 0) {
    ++stats_->nonPositiveIntervals;
    return;
  }
  std::shared_ptr<const SignpostEvent> endEvent = MakeEvent(e);

  SignpostObjectProperties p;
  p.subsystem = Copy(open->subsystem);
  p.category = Copy(open->category);
  p.name = Copy(open->name);
  open->arguments.applyOver(e.arguments, &p);
  const bool telemetry = open->telemetryEnabled || e.telemetry;
  std::shared_ptr<const SignpostEvent> beginEvent = MakeBeginEvent(*open);
  const double seconds = static_cast<double>(nanoseconds) / 1e9;
  p.durationSeconds = static_cast<float>(seconds);
  p.telemetryEnabled = telemetry;
  Dictionary attributes;
  open->arguments.attributesOver(e.arguments, &attributes);

  if (open->animation) {
    const uint64_t frames = open->framesBefore(e.time);
    const float frameRate =
        frames == 0 ? 0.0f : static_cast<float>(static_cast<double>(frames) / seconds);
    auto interval = std::make_shared<const SignpostAnimationInterval>(
        std::move(p), std::move(beginEvent), std::move(endEvent), std::move(attributes),
        frameRate);
    ++stats_->animationIntervals;
    if (callbacks_.animation && *callbacks_.animation) (*callbacks_.animation)(std::move(interval));
  } else {
    auto interval = std::make_shared<const SignpostInterval>(
        std::move(p), std::move(beginEvent), std::move(endEvent), std::move(attributes));
    ++stats_->intervals;
    if (callbacks_.interval && *callbacks_.interval) (*callbacks_.interval)(std::move(interval));
  }
}

}  // namespace lumvane
