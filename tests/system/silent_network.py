"""The network between the service and the broker, which can lose every packet for a while."""

import contextlib
import selectors
import socket
import threading

from bridge import HOST, PORT


class SilentNetwork:
    """
    A relay to the broker. While it is silent, it forwards nothing, neither over the connections
    that it has nor over new ones. Those stay dead when it forwards again, and stay open until it is
    closed: nobody is told that they are of no use any more.
    """

    def __init__(self):
        self.listener = socket.create_server((HOST, 0))
        self.port = self.listener.getsockname()[1]
        self.lock = threading.Lock()  # guards the rest against the test's thread
        self.forwarding = True
        self.dead = []
        self.peers = {}
        self.selector = selectors.DefaultSelector()
        self.ender, self.end = socket.socketpair()
        self.selector.register(self.listener, selectors.EVENT_READ)
        self.selector.register(self.end, selectors.EVENT_READ)
        self.thread = threading.Thread(target=self._run)
        self.thread.start()

    def silence(self):
        with self.lock:
            self.forwarding = False
            for connection in list(self.peers):
                self._forget(connection)
                self.dead.append(connection)

    def forward_again(self):
        with self.lock:
            self.forwarding = True

    def close(self):
        self.ender.close()
        self.thread.join()
        self.selector.close()
        for each in [self.listener, self.end, *self.dead, *self.peers]:
            each.close()

    def _run(self):
        while True:
            for key, _ in self.selector.select():
                if key.fileobj is self.end:
                    return
                with self.lock:
                    self._serve(key.fileobj)

    def _serve(self, ready):
        if ready is self.listener:
            self._accept()
        elif ready in self.peers:
            self._forward(ready)

    def _accept(self):
        connection, _ = self.listener.accept()
        if not self.forwarding:
            self.dead.append(connection)
            return
        broker = socket.create_connection((HOST, int(PORT)))
        self.peers |= {connection: broker, broker: connection}
        for each in (connection, broker):
            self.selector.register(each, selectors.EVENT_READ)

    def _forward(self, source):
        target = self.peers[source]
        data = b""
        with contextlib.suppress(OSError):
            data = source.recv(65536)
            target.sendall(data)
        if not data:
            for each in (source, target):
                self._forget(each)
                each.close()

    def _forget(self, connection):
        self.selector.unregister(connection)
        del self.peers[connection]
