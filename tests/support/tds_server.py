"""A database server for tests: speaks the protocol TDS 7.4 on a loopback port, keeps its tables in a SQLite file.

Usage: tds_server.py PORT FILE USER PASSWORD

Of the protocol it knows PRELOGIN without encryption, LOGIN7 with a password, batches, attention, and remote calls of
sp_executesql, sp_prepare, sp_prepexec, sp_execute and sp_unprepare; of types whole and real numbers, nvarchar, ntext,
datetime and datetime2. As on SQL Server, SET within a remote call ends with it, a transaction that is begun there is an
error, a batch goes on after a failing row, and requests bear the transaction that they belong to. Readers see what was
committed (READ_COMMITTED_SNAPSHOT). The language is in tsql.py.
"""

import datetime
import re
import socket
import sqlite3
import struct
import sys
import threading

import tsql
from tsql import SqlError, expect, is_symbol, is_word, plain

BATCH, CALL, REPLY, ATTENTION, LOGIN, PRELOGIN = 1, 3, 4, 6, 16, 18
MORE, ERROR, COUNT, ATTENDED = 1, 2, 0x10, 0x20
DONE, DONE_CALL, DONE_IN_CALL = 0xFD, 0xFE, 0xFF
PROCEDURES = {10: "sp_executesql", 11: "sp_prepare", 12: "sp_execute", 13: "sp_prepexec", 15: "sp_unprepare"}
COLLATION = bytes([9, 4, 0xD0, 0, 0x34])
FIRST_DAY, FIRST_DAY_OF_DATETIME = datetime.datetime(1, 1, 1), datetime.datetime(1900, 1, 1)
NULL_LONG = (1 << 64) - 1


class SmallInt(int):
    pass


class Long(str):
    pass


sqlite3.register_converter("smallint", lambda raw: SmallInt(raw))
sqlite3.register_converter("nvarcharmax", lambda raw: Long(raw.decode()))
sqlite3.register_converter("datetime2", lambda raw: tsql.moment(raw.decode()))


def utf16(text):
    return text.encode("utf-16-le", "surrogatepass")


def short_text(text):
    return bytes([len(utf16(text)) // 2]) + utf16(text)


def sized(text):
    return struct.pack("<H", len(utf16(text)) // 2) + utf16(text)


def token(kind, body):
    return bytes([kind]) + struct.pack("<H", len(body)) + body


def done(kind, status, rows=0):
    return struct.pack("<BHHQ", kind, status, 0, rows)


def error(failure):
    body = struct.pack("<IBB", failure.number, 1, failure.severity) + sized(failure.message)
    return token(0xAA, body + short_text("tests") + short_text("") + struct.pack("<I", 1))


class Column:
    """How the values of one column travel."""

    def __init__(self, name, values):
        self.name = name
        known = [value for value in values if value is not None]
        first = known[0] if known else ""
        if isinstance(first, int):
            size = 2 if isinstance(first, SmallInt) else 8
            self.type, self.null = bytes([0x26, size]), b"\0"
            self.pack = lambda value: bytes([size]) + int(value).to_bytes(size, "little", signed=True)
        elif isinstance(first, float):
            self.type, self.null = b"\x6D\x08", b"\0"
            self.pack = lambda value: b"\x08" + struct.pack("<d", value)
        elif isinstance(first, datetime.datetime):
            self.type, self.null = b"\x2A\0", b"\0"
            self.pack = self.date
        elif isinstance(first, Long) or any(tsql.units(value) > 4000 for value in known):
            self.type, self.null = b"\xE7\xFF\xFF" + COLLATION, struct.pack("<Q", NULL_LONG)
            self.pack = self.long_text
        else:
            self.type, self.null = b"\xE7" + struct.pack("<H", 8000) + COLLATION, b"\xFF\xFF"
            self.pack = lambda value: struct.pack("<H", len(utf16(value))) + utf16(value)

    @staticmethod
    def date(value):
        since = value - FIRST_DAY
        return b"\x06" + since.seconds.to_bytes(3, "little") + since.days.to_bytes(3, "little")

    @staticmethod
    def long_text(value):
        raw = utf16(value)
        return struct.pack("<Q", len(raw)) + (struct.pack("<I", len(raw)) + raw if raw else b"") + struct.pack("<I", 0)

    def head(self):
        return struct.pack("<IH", 0, 9) + self.type + short_text(self.name)

    def value(self, value):
        return self.null if value is None else self.pack(value)


def rows_token(names, rows):
    columns = [Column(name, [row[i] for row in rows]) for i, name in enumerate(names)]
    out = [b"\x81" + struct.pack("<H", len(columns))] + [column.head() for column in columns]
    for row in rows:
        out.append(b"\xD1" + b"".join(column.value(value) for column, value in zip(columns, row)))
    return b"".join(out)


class Reader:
    """Takes a request apart."""

    def __init__(self, data):
        self.data, self.at = data, 0

    def left(self):
        return len(self.data) - self.at

    def take(self, count):
        if self.left() < count:
            raise EOFError
        self.at += count
        return self.data[self.at - count:self.at]

    def number(self, size, signed=False):
        return int.from_bytes(self.take(size), "little", signed=signed)

    def text(self, units):
        return self.take(2 * units).decode("utf-16-le")

    def transaction(self):
        """Skips the headers. Returns the transaction that they name."""
        headers = Reader(self.take(self.number(4) - 4))
        while headers.left():
            header = Reader(headers.take(headers.number(4) - 4))
            if header.number(2) == 2:
                return header.number(8)
        return 0

    def parameter(self):
        name = self.text(self.number(1))
        self.number(1)
        return name, self.value(self.number(1))

    def value(self, kind):
        if kind == 0x26:
            self.number(1)
            size = self.number(1)
            return self.number(size, signed=True) if size else None
        if kind == 0x6D:
            self.number(1)
            size = self.number(1)
            return struct.unpack("<d" if size == 8 else "<f", self.take(size))[0] if size else None
        if kind == 0xE7:
            longest = self.number(2)
            self.take(5)
            return self.long_text() if longest == 0xFFFF else self.plain_text(self.number(2), 0xFFFF)
        if kind == 0x63:
            self.take(9)
            return self.plain_text(self.number(4), 0xFFFFFFFF)
        if kind == 0x2A:
            return self.datetime2(self.number(1))
        if kind == 0x6F:
            self.number(1)
            return self.datetime() if self.number(1) else None
        raise SqlError(8009, "The test server does not know the data type 0x%02X." % kind, ends="batch")

    def plain_text(self, size, null):
        return None if size == null else self.take(size).decode("utf-16-le")

    def long_text(self):
        if self.number(8) == NULL_LONG:
            return None
        raw = b""
        while size := self.number(4):
            raw += self.take(size)
        return raw.decode("utf-16-le")

    def datetime2(self, scale):
        size = self.number(1)
        if not size:
            return None
        ticks, days = self.number(size - 3), self.number(3)
        return str(FIRST_DAY + datetime.timedelta(days=days, seconds=round(ticks / 10 ** scale)))

    def datetime(self):
        days, ticks = self.number(4, signed=True), self.number(4)
        return str(FIRST_DAY_OF_DATETIME + datetime.timedelta(days=days, seconds=round(ticks / 300)))


class Session:
    """One connection that has logged on: runs texts, and answers with tokens."""

    def __init__(self, file):
        self.database = sqlite3.connect(file, isolation_level=None, detect_types=sqlite3.PARSE_DECLTYPES)
        self.database.execute("PRAGMA journal_mode = WAL")
        self.database.execute("PRAGMA synchronous = OFF")
        tsql.prepare(self.database)
        self.options = {"LOCK_TIMEOUT": -1, "NOCOUNT": False, "IDENTITY_INSERT": None}
        self.transactions = 0  # that this session has begun, ever
        self.depth = 0
        self.identity = None
        self.prepared = {}

    # Requests

    def batch(self, request):
        out = self.check_transaction(request) or self.run(request.text(request.left() // 2), {}, DONE)
        return out[:-13] + self.last(out[-13:])

    @staticmethod
    def last(end):
        """Nothing follows."""
        kind, status, command, rows = struct.unpack("<BHHQ", end)
        return struct.pack("<BHHQ", kind, status & ~MORE, command, rows)

    def check_transaction(self, request):
        if request.transaction() == (self.transactions if self.depth else 0):
            return b""
        failure = SqlError(3989, "New request is not allowed to start because it should come with valid transaction "
                                 "descriptor.")
        return error(failure) + done(DONE, ERROR)

    def calls(self, request):
        """One or more remote calls."""
        out = self.check_transaction(request)
        while request.left() and not out.endswith(done(DONE, ERROR)):
            length = request.number(2)
            name = PROCEDURES.get(request.number(2)) if length == 0xFFFF else request.text(length).lower()
            request.number(2)
            parameters = []
            while request.left() and request.data[request.at] not in (0x80, 0xFE, 0xFF):
                parameters.append(request.parameter())
            if request.left():
                request.number(1)
            out += self.call(name, [value for _, value in parameters], MORE if request.left() else 0)
        return out

    def call(self, name, values, more):
        handle = None
        if name == "sp_unprepare":
            self.prepared.pop(values[0], None)
            return self.ended(b"", None, more)
        if name == "sp_executesql":
            text, declared, values = values[0], (values[1:2] or [""])[0], values[2:]
        elif name in ("sp_prepare", "sp_prepexec"):
            handle = len(self.prepared) + 1
            while handle in self.prepared:
                handle += 1
            text, declared = self.prepared[handle] = (values[2], values[1])
            values = values[3:]
            if name == "sp_prepare":
                return self.ended(b"", handle, more)
        elif name == "sp_execute" and values[0] in self.prepared:
            text, declared = self.prepared[values[0]]
            values = values[1:]
        else:
            return error(SqlError(2812, "Could not find stored procedure '%s'." % name)) + done(DONE_CALL, ERROR | more)
        return self.ended(self.run_within_call(text, declared or "", values), handle, more)

    @staticmethod
    def ended(out, handle, more):
        out += b"\x79" + struct.pack("<I", 0)
        if handle is not None:
            out += b"\xAC\0\0" + short_text("") + b"\x01" + struct.pack("<IH", 0, 0) + b"\x26\x04\x04" + struct.pack("<I", handle)
        return out + done(DONE_CALL, more)

    def run_within_call(self, text, declared, values):
        kinds = re.findall(r"@(\w+)\s+(\w+)(?:\((\w+)\))?", declared)
        if len(values) > 2098:
            return error(SqlError(8003, "Too many parameters were provided in this RPC request.")) + done(DONE_IN_CALL, ERROR | MORE)
        if any(kind == "nvarchar" and size != "max" and int(size or 1) > 4000 for _, kind, size in kinds):
            return error(SqlError(131, "The size given to a parameter exceeds the maximum.")) + done(DONE_IN_CALL, ERROR | MORE)
        if len(kinds) != len(values):
            return error(SqlError(8178, "The parameterized query expects a parameter, which was not supplied.")) \
                + done(DONE_IN_CALL, ERROR | MORE)
        before, depth = dict(self.options), self.depth
        out = self.run(text, {name.lower(): value for (name, _, _), value in zip(kinds, values)}, DONE_IN_CALL)
        self.options = before
        if self.depth != depth:
            out += error(SqlError(266, "Transaction count after EXECUTE indicates a mismatching number of BEGIN and COMMIT "
                                       "statements.")) + done(DONE_IN_CALL, ERROR | MORE)
        return out

    # Statements

    def run(self, text, values, kind):
        """Each statement's result ends with a token of this kind."""
        out = b""
        self.identity = None
        try:
            statements = tsql.statements_of(text)
        except SqlError as failure:
            return error(failure) + done(kind, ERROR | MORE)
        for tokens in statements:
            try:
                if is_word(tokens, 0, "CREATE") and is_word(tokens, 1, "OR") and len(statements) > 1:
                    raise SqlError(111, "'CREATE TRIGGER' must be the first statement in a query batch.", 15, "batch")
                out += self.statement(tokens, values, kind)
            except SqlError as failure:
                out += error(failure)
                if failure.ends == "transaction" and self.depth:
                    out += self.end_transaction("ROLLBACK")
                out += done(kind, ERROR | MORE)
                if failure.ends != "statement":
                    break
        return out or done(kind, MORE)

    def statement(self, tokens, values, kind):
        if is_word(tokens, 0, "IF"):
            holds, rest = self.condition(tokens, values)
            return self.statement(rest, values, kind) if holds else done(kind, MORE)
        if is_word(tokens, 0, "SET"):
            while tokens:
                tokens = self.set_option(tokens)
            return done(kind, MORE)
        if is_word(tokens, 0, "USE") and len(tokens) == 2:
            return done(kind, MORE)
        if is_word(tokens, 0, "BEGIN", "COMMIT", "ROLLBACK") and is_word(tokens, 1, "TRAN", "TRANSACTION") and len(tokens) == 2:
            return self.change_transaction(tokens[0].text.upper()) + done(kind, MORE)
        if is_word(tokens, 0, "CREATE"):
            for text in self.definition(tokens):
                self.execute(text, {})
            return done(kind, MORE)
        if is_word(tokens, 0, "DROP") and is_word(tokens, 1, "TABLE"):
            self.execute("DROP TABLE [%s]" % plain(tokens[2]), {})
            return done(kind, MORE)
        if is_word(tokens, 0, "ALTER") and is_word(tokens, 3, "DROP"):
            self.execute("ALTER TABLE [%s] DROP COLUMN [%s]" % (plain(tokens[2]), plain(tokens[5])), {})
            return done(kind, MORE)
        if is_word(tokens, 0, "ALTER") and is_word(tokens, 3, "ADD"):
            self.execute("ALTER TABLE [%s] ADD %s" % (plain(tokens[2]), tsql.column_definition(tokens[4:])), {})
            return done(kind, MORE)
        if is_word(tokens, 0, "SELECT"):
            return self.query(tokens, values, kind)
        if is_word(tokens, 0, "INSERT", "UPDATE", "DELETE"):
            return self.change(tokens, values, kind)
        raise tsql.near(tokens[0])

    def condition(self, tokens, values):
        if is_word(tokens, 1, "OBJECT_ID"):
            rest = expect(tokens, expect(tokens, 5, "IS"), "NULL")
            name = tokens[3].text.strip("'").lower()
            return name not in self.read("SELECT lower(name) FROM sqlite_master WHERE type = 'table'"), tokens[rest:]
        if is_word(tokens, 1, "COL_LENGTH"):
            rest = expect(tokens, expect(tokens, 7, "IS"), "NULL")
            table, column = (tokens[at].text.strip("'").lower() for at in (3, 5))
            return not self.read("SELECT 1 FROM pragma_table_info('%s') WHERE lower(name) = '%s'" % (table, column)), \
                tokens[rest:]
        if is_word(tokens, 1, "NOT", "EXISTS"):
            at = expect(tokens, 1, "NOT")
            at = expect(tokens, at, "EXISTS")
            end = tsql.closing(tokens, at)
            rows = self.execute(self.translate(tokens[at + 1:end], values), values).fetchall()
            return not rows, tokens[end + 1:]
        if [token.text.upper() for token in tokens[1:4]] == ["@@TRANCOUNT", ">", "0"]:
            return self.depth > 0, tokens[4:]
        raise SqlError(50000, "The test server does not know this condition.")

    def set_option(self, tokens):
        """Returns what follows."""
        while is_symbol(tokens, 2, ","):
            tokens = tokens[:1] + tokens[3:]  # several that are set alike
        name = plain(tokens[1]).upper() if len(tokens) > 2 else ""
        if name == "TRANSACTION":
            expect(tokens, expect(tokens, expect(tokens, 2, "ISOLATION"), "LEVEL"), "SERIALIZABLE")
            return tokens[5:]
        if name == "IDENTITY_INSERT":
            table, on = plain(tokens[2]).lower(), is_word(tokens, 3, "ON")
            expect(tokens, 3, "ON", "OFF")
            if on and self.options[name] not in (None, table):
                raise SqlError(8107, "IDENTITY_INSERT is already ON for table '%s'." % self.options[name])
            self.options[name] = table if on else None
            return tokens[4:]
        if name == "LOCK_TIMEOUT":
            self.options[name] = int(tokens[2].text)
        elif name == "NOCOUNT":
            self.options[name] = is_word(tokens, 2, "ON")
        elif not name or not (is_word(tokens, 2, "ON", "OFF") or tokens[2].kind == "number"):
            raise tsql.near(tokens[1] if len(tokens) > 1 else None)
        return tokens[3:]

    def change_transaction(self, what):
        if what == "BEGIN":
            self.depth += 1
            if self.depth > 1:
                return b""
            self.execute("BEGIN", {})
            self.transactions += 1
            return token(0xE3, b"\x08\x08" + struct.pack("<Q", self.transactions) + b"\0")
        if self.depth == 0:
            number = 3902 if what == "COMMIT" else 3903
            raise SqlError(number, "The %s TRANSACTION request has no corresponding BEGIN TRANSACTION." % what)
        if what == "COMMIT" and self.depth > 1:
            self.depth -= 1
            return b""
        return self.end_transaction(what)

    def end_transaction(self, what):
        self.depth = 0
        self.execute(what, {})
        return token(0xE3, (b"\x09" if what == "COMMIT" else b"\x0A") + b"\0\x08" + struct.pack("<Q", self.transactions))

    def definition(self, tokens):
        if is_word(tokens, 1, "TABLE"):
            end = tsql.closing(tokens, 3)
            columns = [tsql.column_definition(part) for part in tsql.split(tokens[4:end], ",")]
            return ["CREATE TABLE [%s] (%s)" % (plain(tokens[2]), ", ".join(columns))]
        if is_word(tokens, 1, "UNIQUE", "INDEX"):
            return [" ".join(token.text for token in tokens)]
        return self.trigger(tokens)

    def trigger(self, tokens):
        """SQLite has one for each kind of change; and for each row, which a counter of changes does not mind."""
        at = 1
        for word in ("OR", "ALTER", "TRIGGER"):
            at = expect(tokens, at, word)
        name, table = plain(tokens[at]), plain(tokens[at + 2])
        expect(tokens, at + 1, "ON")
        at = expect(tokens, at + 3, "AFTER")
        begin = next((i for i in range(at, len(tokens)) if is_word(tokens, i, "BEGIN")), 0)
        events = [each[0].text.upper() for each in tsql.split(tokens[at:expect(tokens, begin - 1, "AS") - 1], ",")]
        expect(tokens, len(tokens) - 1, "END")
        body = tsql.split(tokens[begin + 1:-1], ";")
        if [token.text.upper() for token in body[0]] == ["SET", "NOCOUNT", "ON"]:
            body = body[1:]
        texts = "; ".join(self.translate(each, {}) for each in body)
        for event in events:
            yield "DROP TRIGGER IF EXISTS [%s_%s]" % (name, event)
            yield "CREATE TRIGGER [%s_%s] AFTER %s ON [%s] BEGIN %s; END" % (name, event, event, table, texts)

    def columns(self):
        return {name.lower(): kind for name, kind in self.database.execute(
            "SELECT c.name, c.type FROM main.sqlite_master t JOIN pragma_table_info(t.name) c WHERE t.type = 'table'")}

    def translate(self, tokens, values):
        constants = {"@@TRANCOUNT": self.depth, "SCOPE_IDENTITY": "NULL" if self.identity is None else self.identity}
        return tsql.Translator(self.columns(), {"@" + name for name in values}, constants).statement(tokens)

    def query(self, tokens, values, kind):
        cursor = self.execute(self.translate(tokens, values), values)
        rows = [list(row) for row in cursor]
        for place in tsql.dates_selected(tokens, self.columns()):
            for row in rows:
                row[place] = row[place] and tsql.moment(row[place])
        names = [each[0] for each in cursor.description]
        return rows_token(names, rows) + done(kind, COUNT | MORE, len(rows))

    def change(self, tokens, values, kind):
        text = self.translate(tokens, values)
        table = plain(tokens[2]) if is_word(tokens, 1, "INTO", "FROM") else plain(tokens[1])
        keyed = is_word(tokens, 0, "INSERT") and self.check_key(tokens, table.lower())
        cursor = self.execute(text, values)
        if keyed:
            self.identity = cursor.lastrowid
        return done(kind, MORE | (0 if self.options["NOCOUNT"] else COUNT), max(cursor.rowcount, 0))

    def check_key(self, tokens, table):
        """Whether the table counts its keys. A row brings its key only where IDENTITY_INSERT is on."""
        key = self.read("SELECT lower(c.name) FROM sqlite_master t JOIN pragma_table_info(t.name) c "
                        "WHERE lower(t.name) = ? AND c.pk AND t.sql LIKE '%AUTOINCREMENT%'", (table,))
        named = []
        if is_symbol(tokens, 3, "("):
            named = [plain(part[0]).lower() for part in tsql.split(tokens[4:tsql.closing(tokens, 3)], ",")]
        brought = bool(key) and key[0] in named
        if brought and self.options["IDENTITY_INSERT"] != table:
            raise SqlError(544, "Cannot insert explicit value for identity column in table '%s' when IDENTITY_INSERT is set to "
                                "OFF." % table)
        if key and not brought and self.options["IDENTITY_INSERT"] == table:
            raise SqlError(545, "Explicit value must be specified for identity column in table '%s'." % table)
        if len(tsql.split(tokens, ",")) > 1000:
            raise SqlError(10738, "The number of row value expressions exceeds the maximum of 1000.", 15)
        return bool(key)

    def read(self, text, values=()):
        return [row[0] for row in self.database.execute(text, values)]

    def execute(self, text, values):
        patience = self.options["LOCK_TIMEOUT"]
        self.database.execute("PRAGMA busy_timeout = %d" % (3_600_000 if patience < 0 else patience))
        try:
            return self.database.execute(text, values)
        except sqlite3.Error as failure:
            raise tsql.error_of(failure) from failure


class Link:
    """A client's socket: packets, and the conversation up to the logon."""

    def __init__(self, peer, file, user, password):
        self.peer, self.file, self.account = peer, file, (user, password)

    def receive(self, count):
        data = b""
        while len(data) < count:
            piece = self.peer.recv(count - len(data))
            if not piece:
                raise EOFError
            data += piece
        return data

    def request(self):
        body = b""
        while True:
            kind, status, length = struct.unpack(">BBH", self.receive(8)[:4])
            body += self.receive(length - 8)
            if status & 1:
                return kind, body

    def reply(self, body):
        pieces = [body[i:i + 4088] for i in range(0, len(body), 4088)]
        for number, piece in enumerate(pieces, 1):
            last = number == len(pieces)
            self.peer.sendall(struct.pack(">BBHHBB", REPLY, last, len(piece) + 8, 51, number & 255, 0) + piece)

    def greet(self):
        """Encryption is not supported."""
        options = [(0, bytes([15, 0, 0x10, 0, 0, 0])), (1, b"\2"), (2, b"\0"), (3, b""), (4, b"\0")]
        head, body = b"", b""
        for kind, value in options:
            head += struct.pack(">BHH", kind, 5 * len(options) + 1 + len(body), len(value))
            body += value
        self.reply(head + b"\xFF" + body)

    def log_on(self, request):
        def field(at):
            offset, units = struct.unpack_from("<HH", request, at)
            return request[offset:offset + 2 * units]

        user, database = field(40).decode("utf-16-le"), field(68).decode("utf-16-le")
        raw = bytes(((byte ^ 0xA5) >> 4 | (byte ^ 0xA5) << 4) & 255 for byte in field(44))
        if (user, raw.decode("utf-16-le")) != self.account:
            self.reply(error(SqlError(18456, "Login failed for user '%s'." % user, 14)) + done(DONE, ERROR))
            raise EOFError
        if database not in ("", "VELTO"):
            self.reply(error(SqlError(4060, 'Cannot open database "%s".' % database, 11)) + done(DONE, ERROR))
            raise EOFError
        answer = b"\x01" + bytes([0x74, 0, 0, 4]) + short_text("Microsoft SQL Server") + bytes([15, 0, 0x10, 0])
        changes = token(0xE3, b"\x01" + short_text(database) + short_text("master"))
        changes += token(0xE3, b"\x04" + short_text("4096") + short_text("4096"))
        self.reply(changes + token(0xAD, answer) + done(DONE, 0))

    def serve(self):
        session = None
        try:
            while True:
                kind, body = self.request()
                if kind == PRELOGIN:
                    self.greet()
                elif kind == LOGIN:
                    self.log_on(body)
                    session = Session(self.file)
                elif kind == ATTENTION:
                    self.reply(done(DONE, ATTENDED))
                elif session and kind in (BATCH, CALL):
                    answer = session.batch if kind == BATCH else session.calls
                    self.reply(answer(Reader(body)))
                else:
                    return
        except (EOFError, OSError):
            pass
        finally:
            if session:
                session.database.close()  # takes back what was not committed
            self.peer.close()


def main(port, file, user, password):
    listener = socket.create_server(("127.0.0.1", int(port)))
    while True:
        peer, _ = listener.accept()
        peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        threading.Thread(target=Link(peer, file, user, password).serve, daemon=True).start()


if __name__ == "__main__":
    main(*sys.argv[1:])
