// The keys that a process takes along through its session, see session-keyring(7).
#pragma once

/// Gives this process a session keyring of its own, without a key, in place of the caller's. Does
/// nothing on a kernel without keys. Throws std::runtime_error "cannot leave the caller's session
/// keyring: …".
void leaveSessionKeyring();
