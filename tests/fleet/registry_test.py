#!/usr/bin/env python3
"""The networks that the Ansible role gives to accounts."""

import importlib.util
import pathlib
import sys
import unittest

sys.dont_write_bytecode = True
ROLE = pathlib.Path(__file__).parents[2] / "dist/ansible/roles/kivctl"
spec = importlib.util.spec_from_file_location("plugin", ROLE / "filter_plugins/kivctl_registry.py")
plugin = importlib.util.module_from_spec(spec)
spec.loader.exec_module(plugin)


def plan(accounts, registry="", running=()):
    """The registry's lines, and the names of accounts that leave."""
    result = plugin.kivctl_registry(accounts, registry, running)
    lines = [f"{account['name']} net={account['net']}" for account in result["accounts"]]
    return lines, result["leaving"]


class Registry(unittest.TestCase):
    def refused(self, message, *arguments):
        with self.assertRaisesRegex(Exception, message):
            plan(*arguments)

    def test_new_accounts_get_the_lowest_networks_in_order(self):
        self.assertEqual(plan(["alice", "bob"]), (["alice net=100.64.0.4/30", "bob net=100.64.0.8/30"], []))

    def test_a_new_account_at_any_position_renumbers_nobody(self):
        registry = "# comment\n\nalice net=100.64.0.4/30\n bob\tnet=100.64.0.12/30\n"
        lines, _ = plan(["carol", "bob", "dave", "alice"], registry)
        self.assertEqual(
            lines,
            [
                "carol net=100.64.0.8/30",
                "bob net=100.64.0.12/30",
                "dave net=100.64.0.16/30",
                "alice net=100.64.0.4/30",
            ],
        )

    def test_a_plan_of_its_own_result_is_the_same(self):
        lines, _ = plan(["alice", {"name": "bob", "net": "100.64.9.0/30"}, "carol"])
        self.assertEqual(plan(["alice", {"name": "bob", "net": "100.64.9.0/30"}, "carol"], "\n".join(lines))[0], lines)

    def test_the_network_of_an_account_that_left_is_free_again(self):
        lines, leaving = plan(["carol", "bob"], "alice net=100.64.0.4/30\nbob net=100.64.0.8/30")
        self.assertEqual((lines, leaving), (["carol net=100.64.0.4/30", "bob net=100.64.0.8/30"], []))

    def test_an_account_that_left_but_runs_keeps_line_and_network(self):
        lines, leaving = plan(["carol"], "alice net=100.64.0.4/30\nbob net=100.64.0.8/30", ["alice", "carol"])
        self.assertEqual((lines, leaving), (["carol net=100.64.0.8/30", "alice net=100.64.0.4/30"], ["alice"]))

    def test_an_account_that_left_without_a_network_but_runs_keeps_only_a_line(self):
        result = plugin.kivctl_registry([], "alice mtu=1", ["alice"])
        self.assertEqual(result["accounts"], [{"name": "alice", "net": ""}])

    def test_the_inventory_takes_precedence_over_the_registry(self):
        lines, _ = plan([{"name": "alice", "net": "100.64.1.0/30"}, "bob"], "alice net=100.64.0.4/30")
        self.assertEqual(lines, ["alice net=100.64.1.0/30", "bob net=100.64.0.4/30"])

    def test_larger_networks_are_kept_and_avoided(self):
        lines, _ = plan(["alice", "bob"], "alice net=100.64.0.0/28")
        self.assertEqual(lines, ["alice net=100.64.0.0/28", "bob net=100.64.0.16/30"])

    def test_the_last_network_of_a_line_counts(self):
        self.assertEqual(plan(["bob"], "bob net=a net=100.64.0.20/30")[0], ["bob net=100.64.0.20/30"])

    def test_a_running_container_is_not_renumbered(self):
        moved = [{"name": "alice", "net": "100.64.1.0/30"}]
        self.refused("alice runs with 100.64.0.4/30", moved, "alice net=100.64.0.4/30", ["alice"])

    def test_networks_that_overlap_are_refused(self):
        self.refused("same network", [{"name": "alice", "net": "100.64.0.8/30"}, "bob"], "bob net=100.64.0.8/29")

    def test_an_invalid_network_is_refused(self):
        for net in ("100.64.0.5/30", "100.64.0.4/31", "10.0.0.0/30", "100.128.0.0/30", "100.64.0.4", "x", "fd00::/126"):
            self.refused("no (network|/30)", [{"name": "alice", "net": net}])

    def test_an_invalid_account_is_refused(self):
        for account in ("", "a b", "a@net", "#a", "a/b", {"net": "100.64.0.4/30"}, {"name": "a", "mtu": 1}):
            self.refused("no account", [account])

    def test_a_duplicate_account_is_refused(self):
        self.refused("alice is in the inventory twice", ["alice", "alice"])
        self.refused("alice is in the host's registry twice", ["alice"], "alice\nalice")

    def test_a_full_range_is_reported(self):
        self.refused("no free /30", ["alice", "bob"], "alice net=100.64.0.0/10")

    def test_the_range_has_room_for_every_account_of_a_large_host(self):
        lines, _ = plan([f"u{number}" for number in range(20000)])
        self.assertEqual(lines[-1], "u19999 net=100.65.56.128/30")
        self.assertEqual(len(set(line.split()[1] for line in lines)), 20000)


if __name__ == "__main__":
    unittest.main()
