"""The emulated gateway: runs the real program in a private root and tells what it did."""


class GatewayError(Exception):
    """The gateway cannot be made or run; the text says in one line what to do."""
