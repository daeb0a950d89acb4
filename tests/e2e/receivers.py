"""Who is told: a web server, a mail server and a journal that keep what they get and misbehave on demand."""

import base64
import email
import email.policy
import hashlib
import hmac
import http.server
import json
import os
import re
import socket
import socketserver
import ssl
import subprocess
import threading
import time


def make_certificate(directory, name="localhost"):
    """A self-signed certificate for `name`, which is its own authority. Gives (certificate, key)."""
    certificate, key = directory / f"{name}.pem", directory / f"{name}.key"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "30", "-subj", f"/CN={name}",
         "-addext", f"subjectAltName=DNS:{name}", "-keyout", str(key), "-out", str(certificate)],
        check=True, capture_output=True)
    return certificate, key


def server_context(certificate, key):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    return context


class Receiver:
    """`mode` says what happens to a message: "take"; "refuse"; "break": the connection ends before the
    answer; "hang": there is no answer until release(). What was answered as taken is in `taken`, every
    message that came whole is in `seen`."""

    def __init__(self):
        self.mode = "take"
        self.taken = []
        self.seen = []
        self.lock = threading.Lock()
        self.waiting = threading.Event()  # somebody hangs
        self._released = threading.Event()

    def arrived(self, message):
        """Notes the message; gives whether it is to be taken, or None to break the connection."""
        mode = self.mode
        with self.lock:
            self.seen.append(message)
        if mode == "hang":
            self.waiting.set()
            self._released.wait(60)
            return None
        if mode == "break":
            return None
        return mode == "take"

    def note_taken(self, message):
        with self.lock:
            self.taken.append(message)

    def release(self):
        self._released.set()


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True
    request_queue_size = 64

    def handle_error(self, request, client_address):
        pass  # clients break off, and are killed


class Webhook(Receiver):
    """Documents, each with "signed": the signature is right."""

    def __init__(self, secret="", context=None):
        super().__init__()
        receiver = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                document = json.loads(body)
                document["signed"] = receiver.is_signed(self.headers, body, secret)
                document["name in header"] = self.headers["Corvane-Alert"]
                is_taken = receiver.arrived(document)
                if is_taken is None:
                    self.connection.shutdown(socket.SHUT_RDWR)
                    self.close_connection = True
                    return
                if is_taken:
                    receiver.note_taken(document)
                self.send_response(200 if is_taken else 503)
                self.send_header("Content-Length", "0")
                self.end_headers()

            def log_message(self, *_):
                pass

        self._server = Server(("127.0.0.1", 0), Handler)
        scheme = "http"
        if context is not None:
            self._server.socket = context.wrap_socket(self._server.socket, server_side=True)
            scheme = "https"
        self.url = f"{scheme}://localhost:{self._server.server_port}/hook?token=hidden"
        threading.Thread(target=self._server.serve_forever, args=(0.02,), daemon=True).start()

    @staticmethod
    def is_signed(headers, body, secret):
        match = re.fullmatch(r"t=(\d+),v1=([0-9a-f]{64})", headers.get("Corvane-Signature", ""))
        if match is None:
            return False
        expected = hmac.new(secret.encode(), match[1].encode() + b"." + body, hashlib.sha256).hexdigest()
        return hmac.compare_digest(expected, match[2])

    def close(self):
        self.release()
        self._server.shutdown()
        self._server.server_close()


class MailSession(socketserver.StreamRequestHandler):
    def say(self, line):
        self.wfile.write(line.encode() + b"\r\n")

    def handle(self):
        server = self.server.receiver
        if server.context is not None and server.implicit:
            self.secure()
        self.say("220 receiver")
        self.is_authenticated = False
        sender, recipients = None, []
        while line := self.rfile.readline():  # of the encrypted stream, once there is one
            words = line.decode().strip()
            verb = words.split(" ")[0].upper()
            if verb in ("EHLO", "HELO"):
                features = ["STARTTLS"] if server.context is not None and not self.is_secure() else []
                features += ["AUTH PLAIN"] if server.login else []
                for feature in features:
                    self.say("250-" + feature)
                self.say("250 receiver")
            elif verb == "STARTTLS":
                self.say("220 go on")
                self.secure()
            elif verb == "AUTH":
                given = words.split(" ")[2] if len(words.split(" ")) > 2 else self.ask_more()
                self.is_authenticated = base64.b64decode(given) == b"\0" + b"\0".join(
                    part.encode() for part in server.login.split(":", 1))
                self.say("235 hello" if self.is_authenticated else "535 wrong")
            elif verb == "MAIL":
                sender, recipients = words, []
                self.say("530 who are you" if server.login and not self.is_authenticated else "250 ok")
            elif verb == "RCPT":
                recipients.append(re.search("<(.*)>", words)[1])
                self.say("250 ok")
            elif verb == "DATA":
                self.say("354 go on")
                if not self.take(server, sender, recipients):
                    return
            elif verb == "QUIT":
                self.say("221 bye")
                return
            else:
                self.say("500 what")

    def ask_more(self):
        self.say("334 ")
        return self.rfile.readline().decode().strip()

    def is_secure(self):
        return isinstance(self.connection, ssl.SSLSocket)

    def secure(self):
        self.connection = self.server.receiver.context.wrap_socket(self.connection, server_side=True)
        self.setup()

    def setup(self):
        if not isinstance(getattr(self, "connection", None), ssl.SSLSocket):
            self.connection = self.request
        self.rfile = self.connection.makefile("rb")
        self.wfile = self.connection.makefile("wb", buffering=0)

    def take(self, server, sender, recipients):
        lines = []
        for line in self.rfile:
            if line == b".\r\n":
                break
            lines.append(line)
        else:
            return False
        message = email.message_from_bytes(b"".join(lines), policy=email.policy.default)
        document = json.loads(message.get_payload()[1].get_payload(decode=True))
        document.update({"mail": message, "recipients": recipients, "encrypted": self.is_secure(),
                         "plain": message.get_payload()[0].get_content().replace("\r\n", "\n")})
        is_taken = server.arrived(document)
        if is_taken is None:
            self.connection.close()
            return False
        if is_taken:
            server.note_taken(document)
        self.say("250 taken" if is_taken else "451 try later")
        return True


class MailServer(Receiver):
    """Documents out of the mails' attachments, each with the "mail", its "plain" words, its "recipients"
    and whether it came "encrypted". With a context it offers STARTTLS, or speaks TLS at once (implicit)."""

    def __init__(self, context=None, implicit=False, login="", address="127.0.0.1"):
        super().__init__()
        self.context, self.implicit, self.login = context, implicit, login
        socketserver.ThreadingTCPServer.allow_reuse_address = True
        self._server = socketserver.ThreadingTCPServer((address, 0), MailSession)
        self._server.daemon_threads = True
        self._server.handle_error = lambda *_: None
        self._server.receiver = self
        self.port = self._server.server_address[1]
        self.url = f"{'smtps' if implicit else 'smtp'}://localhost:{self.port}"
        threading.Thread(target=self._server.serve_forever, args=(0.02,), daemon=True).start()

    def close(self):
        self.release()
        self._server.shutdown()
        self._server.server_close()


class Journal:
    """The fields of the entries, in the journal's native format."""

    def __init__(self, path):
        self.entries = []
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(path))
        self._thread = threading.Thread(target=self._receive, daemon=True)
        self._thread.start()

    def _receive(self):
        while True:
            data, files, _, _ = socket.recv_fds(self._socket, 1 << 20, 1)
            if data == b"end":
                return
            for file in files:
                with os.fdopen(file, "rb") as content:
                    content.seek(0)
                    data = content.read()
            self.entries.append(self.parse(data))

    @staticmethod
    def parse(data):
        fields = {}
        while data:
            line, _, data = data.partition(b"\n")
            if b"=" in line:
                name, _, value = line.partition(b"=")
            else:
                name, length = line, int.from_bytes(data[:8], "little")
                value, data = data[8:8 + length], data[9 + length:]
            fields[name.decode()] = value.decode()
        return fields

    def close(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as end:
            end.sendto(b"end", self._socket.getsockname())
        self._thread.join(10)
        self._socket.close()


def wait_for(receiver, count, seconds=30):
    """Waits until `count` messages have arrived, and returns them."""
    deadline = time.monotonic() + seconds
    while len(receiver.taken) < count:
        if time.monotonic() > deadline:
            raise TimeoutError(f"{len(receiver.taken)} of {count} messages")
        time.sleep(0.02)
    return receiver.taken
