"""A mail server for tests, on a free loopback port.

Usage: smtp_sink.py MODE
  accept  takes every mail
  refuse  refuses every recipient
  slow    takes connections and never says a word
  drop    ends the connection in the middle of a mail

Prints its port, then each mail that it took, one JSON text a line. Ends when its standard input does.
"""

import asyncio
import email
import email.policy
import json
import sys

from aiosmtpd.smtp import SMTP


def tell(value):
    print(json.dumps(value), flush=True)


class Handler:
    def __init__(self, mode):
        self.mode = mode

    async def handle_RCPT(self, server, session, envelope, address, options):
        if self.mode == "refuse":
            return "550 there is no such mailbox"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        if self.mode == "drop":
            server.transport.abort()
            return "451 never seen"
        raw = envelope.original_content
        message = email.message_from_bytes(raw, policy=email.policy.SMTP)
        tell({
            "sender": envelope.mail_from,
            "recipients": envelope.rcpt_tos,
            "headers": [[name, str(value)] for name, value in message.items()],
            "body": message.get_payload(decode=True).decode("utf-8"),
            "raw": raw.decode("latin-1"),
        })
        return "250 OK"


async def stay_silent(reader, writer):
    await reader.read()
    writer.close()


async def main(mode):
    loop = asyncio.get_running_loop()
    if mode == "slow":
        server = await asyncio.start_server(stay_silent, "127.0.0.1", 0)
    else:
        server = await loop.create_server(lambda: SMTP(Handler(mode)), "127.0.0.1", 0)
    tell(server.sockets[0].getsockname()[1])
    await loop.run_in_executor(None, sys.stdin.read)


asyncio.run(main(sys.argv[1]))
