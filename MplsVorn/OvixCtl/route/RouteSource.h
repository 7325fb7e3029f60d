#pragma once

#include <functional>
#include <string>
#include <utility>

#include "Tessel/Result.h"
#include "route/RouteGrammar.h"

namespace OvixCtl {

/// What a file of routes holds: a configuration of the agent, or lines as lfib show prints them.
/// Which of them it is shows in its first line that is neither empty nor a comment.
class RouteSource {
  public:
    /// Takes an entry, or refuses it with a reason; `part` (0 to 1) of the text has been read.
    using Take = std::function<Tessel::Result<void>(const Entry& entry, double part)>;
    /// Hears of names of interfaces before the first entry that has them.
    using TakeInterface = std::function<void(const std::string& name)>;

    /// Reads all of a file, "-" being standard input, however long that takes. Refuses what cannot
    /// be read.
    static Tessel::Result<RouteSource> open(const std::string& file);

    /// Hands over entry by entry. Refuses, naming file and line, what cannot be understood, and
    /// what `take` refuses.
    Tessel::Result<void> read(const Take& take, const TakeInterface& interface) const;

  private:
    RouteSource(std::string name, std::string text)
        : name_(std::move(name)), text_(std::move(text)) {}

    std::string name_;
    std::string text_;
};

} // namespace OvixCtl
