// Texts that are repeated in line after line are cut when they arrive: an agent must not make the
// server write a thousand times what it has sent.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace server {

constexpr std::size_t kMaxIdentity = 255;  // bytes of a node, a server, a cluster, a component
constexpr std::size_t kMaxRepeated = 512;  // bytes of a method's or an enclosing request's name

// As much of the text as takes maxBytes when it is shown, an ellipsis for the rest: a control
// character takes six there. It is not cut inside a character.
std::string cutText(std::string_view untrusted, std::size_t maxBytes);

}  // namespace server
