<?php
// The page of an account on the small host: who serves it and where, its session, and the database.
header('Content-Type: text/plain');
session_start();
$_SESSION['visits'] = ($_SESSION['visits'] ?? 0) + 1;
$user = posix_getpwuid(posix_geteuid())['name'];
$database = new mysqli('127.0.0.1', $user, "secret of $user", $user);
$database->query('INSERT INTO visits () VALUES ()');
echo "user: $user\n";
echo 'namespace: ', readlink('/proc/self/ns/mnt'), "\n";
echo 'session: ', $_SESSION['visits'], "\n";
echo 'visits in the database: ', $database->query('SELECT COUNT(*) FROM visits')->fetch_row()[0], "\n";
echo 'caller: ', $database->query('SELECT USER()')->fetch_row()[0], "\n";
