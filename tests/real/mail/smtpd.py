"""smtpd.py CERTIFICATES MAILBOX: mail servers on ports of the loopback interface, which it prints; the message of
each mail goes to a file of its own, the envelope to another. Ends when its standard input does."""

import asyncio
import base64
import hmac
import os
import ssl
import sys

from aiosmtpd.smtp import MISSING, SMTP, AuthResult, LoginPassword

FOLDER, MAILBOX = sys.argv[1:3]
USER, PASSWORD = b"user", b"pa ss"
CHALLENGE = b"<1896.697170952@localhost>"


class Server(SMTP):
    AuthLoginUsernameChallenge = "Username:"
    AuthLoginPasswordChallenge = "Password:"


class Handler:
    count = 0

    def __init__(self, name):
        self.folds_case = name == "plain"

    async def handle_RCPT(self, server, session, envelope, address, options):
        if address.startswith("nobody@"):
            return "550 5.1.1 No such user"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        Handler.count += 1
        path = f"{MAILBOX}/{Handler.count}"
        auth = session.auth_data[0] if session.auth_data else "-"
        secure = session.ssl is not None or server.transport.get_extra_info("sslcontext") is not None
        with open(path + ".txt", "w") as file:
            file.write(f"{envelope.mail_from} {','.join(envelope.rcpt_tos)} {'tls' if secure else 'clear'} {auth}")
        with open(path + ".eml.new", "wb") as file:
            file.write(envelope.original_content)
        os.rename(path + ".eml.new", path + ".eml")
        return "250 OK"

    async def auth_CRAM__MD5(self, server, args):
        answer = await server.challenge_auth(CHALLENGE)
        if answer is MISSING:
            return AuthResult(success=False)
        user, _, digest = answer.rpartition(b" ")
        if self.folds_case:
            digest = digest.lower()
        wanted = hmac.new(PASSWORD, CHALLENGE, "md5").hexdigest().encode()
        return AuthResult(success=(user, digest) == (USER, wanted), auth_data=("CRAM-MD5",), handled=False)


def authenticate(server, session, envelope, mechanism, data):
    known = isinstance(data, LoginPassword) and (data.login, data.password) == (USER, PASSWORD)
    return AuthResult(success=known, auth_data=(mechanism,), handled=False)


def context(name):
    made = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    made.load_cert_chain(f"{FOLDER}/{name}.crt", f"{FOLDER}/server.key")
    return made


async def main():
    loop = asyncio.get_running_loop()
    # aiosmtpd logs what breaks off; that is meant to happen here.
    loop.set_exception_handler(lambda *_: None)
    ports = []
    for name in ("plain", "good", "misnamed", "expired", "unknown", "implicit"):
        upgrade = context(name) if name not in ("plain", "implicit") else None

        def make(name=name, upgrade=upgrade):
            return Server(Handler(name), hostname="localhost", authenticator=authenticate, tls_context=upgrade,
                          auth_require_tls=upgrade is not None)

        listener = await loop.create_server(make, "127.0.0.1", 0, ssl=context("good") if name == "implicit" else None)
        ports.append(f"{name}={listener.sockets[0].getsockname()[1]}")
    print(*ports, flush=True)
    await loop.run_in_executor(None, sys.stdin.read)
    os._exit(0)


asyncio.run(main())
