// Mount namespaces have an order, and only a later one can be pinned from an earlier one.
#pragma once

/// To be called in a process that has just unshared its mount namespace, which another process in
/// the namespace `pinning` (a descriptor) is to bind-mount. From Linux 6.18 on the numbers come in
/// batches for each processor, so the new namespace may have got a lower one, and the bind would
/// fail with EINVAL. Then the namespace is unshared again on other processors until its number is
/// higher; the affinity is as before afterwards. Changes nothing where the kernel does not tell the
/// numbers or where no processor helps.
void makeMountNamespaceLater(int pinning);
