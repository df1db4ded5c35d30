// Joins the namespaces of a running container, which are pinned in the runtime directory.
#pragma once

#include <string>

/// Joins the user's network, IPC and mount namespaces, setns(2), and changes to the container's
/// root directory. All three are opened and checked before the first is joined. Throws
/// std::runtime_error with the file and the reason.
void enterNamespaces(const std::string& user);
