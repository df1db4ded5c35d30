"""An application of an account that answers web requests on the socket SOCKET."""

import http.server
import os
import pwd
import socketserver


class Answer(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        namespace = os.readlink("/proc/self/ns/mnt")
        text = f"{pwd.getpwuid(os.geteuid()).pw_name} {namespace} {self.path} {os.environ['NODE_ENV']}\n"
        self.send_response(200)
        self.send_header("Content-Length", str(len(text)))
        self.end_headers()
        self.wfile.write(text.encode())

    def address_string(self):
        return "socket"


socketserver.UnixStreamServer(os.environ["SOCKET"], Answer).serve_forever()
