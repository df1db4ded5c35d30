<?php
// The page of an account: who serves it and where, its session, an upload, what answers as the database.
header('Content-Type: text/plain');
session_start();
$_SESSION['visits'] = ($_SESSION['visits'] ?? 0) + 1;
echo 'user: ', posix_getpwuid(posix_geteuid())['name'], "\n";
echo 'namespace: ', readlink('/proc/self/ns/mnt'), "\n";
echo 'homes: ', implode(' ', array_diff(scandir('/home'), ['.', '..'])), "\n";
echo 'session: ', session_id(), ' ', $_SESSION['visits'], "\n";
if (isset($_FILES['file'])) {
    echo 'upload in: ', dirname($_FILES['file']['tmp_name']), "\n";
    echo 'kept: ', move_uploaded_file($_FILES['file']['tmp_name'], getenv('HOME') . '/upload') ? 'yes' : 'no', "\n";
}
$database = @fsockopen('127.0.0.1', 3306, $number, $text, 10);
echo 'database: ', $database ? fgets($database) : "$text\n";
