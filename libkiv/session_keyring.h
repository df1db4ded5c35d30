// The keys that a process inherits with its session, see session-keyring(7).
#pragma once

/// Replaces the caller's session keyring by a new, empty one. Does nothing on a kernel without
/// keyrings. Throws std::runtime_error "cannot leave the caller's session keyring: …".
void leaveSessionKeyring();
