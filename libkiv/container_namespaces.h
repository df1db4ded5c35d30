// The namespaces of a running container, as they are held in the runtime directory.
#pragma once

#include <string>

/// Joins the user's network, IPC and mount namespaces and goes to the container's root directory.
/// All three are opened and checked before the first is joined. Throws std::runtime_error with the
/// file and the reason.
void enterNamespaces(const std::string& user);
