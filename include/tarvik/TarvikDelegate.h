#pragma once

#include <optional>

namespace tarvik {

class Tarvik;

// Callbacks a host may implement. Every method is optional: an unimplemented question answers
// std::nullopt and the SDK applies its default.
class TarvikDelegate {
  public:
    virtual ~TarvikDelegate() = default;

    // Asked the first time a process type is set. Default: the instruction overlay is shown.
    virtual std::optional<bool> tarvikShouldDisplayInstructionView(Tarvik&) { return std::nullopt; }
    // Asked after an issue report was handed over for sending. Default: the confirmation is
    // shown.
    virtual std::optional<bool> tarvikShouldDisplayConfirmationMessage(Tarvik&) {
        return std::nullopt;
    }
    // Told after the confirmation step of each issue report.
    virtual void tarvikDidGenerateUserIssueSubmission(Tarvik&) {}
};

}  // namespace tarvik
