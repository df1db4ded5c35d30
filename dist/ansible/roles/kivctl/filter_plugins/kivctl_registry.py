"""The registry of accounts with a container, and their networks."""

import ipaddress
import re

try:
    from ansible.errors import AnsibleFilterError
except ImportError:  # the unit tests need no Ansible
    AnsibleFilterError = ValueError

RANGE = ipaddress.ip_network("100.64.0.0/10")
ADDRESSES = 4  # a /30: the host's end of the link, the container's, and the two that have no host
FIRST = int(RANGE.network_address) + ADDRESSES  # the first four stay free, as in the sample registry


def fail(message):
    raise AnsibleFilterError("kivctl_registry: " + message)


def parse_network(text, account):
    try:
        network = ipaddress.IPv4Network(text)
    except ValueError:
        fail("%s: '%s' is no network" % (account, text))
    if network.num_addresses < ADDRESSES or not network.subnet_of(RANGE):
        fail("%s: %s is no /30 of %s" % (account, text, RANGE))
    return network


def read_registry(text):
    """The account names of a registry, each with its network's text or None."""
    accounts = {}
    for line in text.splitlines():
        words = line.split()
        if not words or words[0].startswith("#"):
            continue
        nets = [word[len("net="):] for word in words[1:] if word.startswith("net=")]
        if words[0] in accounts:
            fail("%s is in the host's registry twice" % words[0])
        accounts[words[0]] = nets[-1] if nets else None
    return accounts


def read_inventory(accounts):
    """The same of the inventory's list, of names or of mappings with "name" and "net"."""
    wanted = {}
    for account in accounts:
        if isinstance(account, str):
            account = {"name": account}
        unknown = set(account) - {"name", "net"}
        name = str(account.get("name", ""))
        if unknown or not re.fullmatch(r"[^\s@#/][^\s@/]*", name):
            fail("no account: %s" % dict(account))
        if name in wanted:
            fail("%s is in the inventory twice" % name)
        wanted[name] = account.get("net")
    return wanted


def check_disjoint(networks):
    by_address = sorted(networks.items(), key=lambda item: item[1])
    for (name, network), (other, next_network) in zip(by_address, by_address[1:]):
        if network.overlaps(next_network):
            fail("%s and %s have the same network: %s, %s" % (name, other, network, next_network))


def free_networks(networks):
    """The free /30, lowest first."""
    address = FIRST
    for network in sorted(networks):
        while address < int(network.network_address):
            yield ipaddress.IPv4Network((address, 30))
            address += ADDRESSES
        address = max(address, int(network.broadcast_address) + 1)
    while address < int(RANGE.broadcast_address):
        yield ipaddress.IPv4Network((address, 30))
        address += ADDRESSES
    fail("%s has no free /30 left" % RANGE)


def kivctl_registry(accounts, registry="", running=()):
    """The next content of the registry.

    An account keeps its network in the host's registry; a network of the inventory takes precedence; and the
    lowest free /30 goes to an account without one. Accounts that left the inventory keep their line while their container
    runs, because kivctl stops only accounts of the registry, and no other account may get their network meanwhile.
    Returns "accounts", a list of name and net in order, and "leaving", the names of those that have left but still run.
    """
    recorded = read_registry(registry)
    wanted = read_inventory(accounts)
    leaving = [name for name in recorded if name not in wanted and name in running]
    networks = {}
    for name in list(wanted) + leaving:
        text = wanted.get(name) or recorded.get(name)
        if text is None:
            continue
        networks[name] = parse_network(text, name)
        before = recorded.get(name)
        if name in running and before is not None and parse_network(before, name) != networks[name]:
            fail("%s runs with %s and is to have %s: stop it first" % (name, before, networks[name]))
    check_disjoint(networks)
    free = free_networks(networks.values())
    for name in wanted:
        if name not in networks:
            networks[name] = next(free)
    return {
        "accounts": [
            {"name": name, "net": str(networks[name]) if name in networks else ""}
            for name in list(wanted) + leaving
        ],
        "leaving": leaving,
    }


class FilterModule:
    def filters(self):
        return {"kivctl_registry": kivctl_registry}
