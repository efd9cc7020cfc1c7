"""Builds streams of the record format, and connections that send them."""

import socket
import struct

TRAILER = b"\x7f\x7f"


def text(value):
    return struct.pack(">H", len(value)) + value


def init(node=b"node", server=b"server"):
    return (struct.pack(">iBBBq", 2000, 100, 3, 1, 1700000000000) + TRAILER
            + bytes([101, 200, 10, 1, 2]) + text(b"component") + text(b"cluster") + text(node) + text(server)
            + struct.pack(">i", 0) + TRAILER)


def packet(*records):
    return b"\0" + struct.pack(">i", len(records)) + TRAILER + b"".join(records)


def timed(kind, thread=1, depth=1, fields=b""):
    return struct.pack(">BIBIIq", kind, thread, depth, 1700000000, 0, 0) + fields + b"\2" + TRAILER


def request(thread, url):
    """The two records of a servlet request."""
    return timed(4, thread, fields=b"\1" + text(b"name") + text(b"app") + text(url) + text(b"")), timed(5, thread)


def class_load(name, methods):
    """methods: {id: name}"""
    body = b"".join(struct.pack(">I", each) + text(method) + text(b"()V") for each, method in methods.items())
    return b"\1" + struct.pack(">I", 1) + text(name) + struct.pack(">i", len(methods)) + body + TRAILER


def method_exit(thread, method):
    return struct.pack(">BIIIIq", 3, thread, method, 1700000000, 0, 0) + TRAILER


def connect(port, source="127.0.0.1"):
    return socket.create_connection(("127.0.0.1", port), timeout=20, source_address=(source, 0))
