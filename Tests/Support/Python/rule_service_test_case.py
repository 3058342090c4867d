# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of the rule service: callers on the private machine's system bus, people before polkit's dialog,
and what they leave behind."""

import contextlib
import fcntl
import os
import socket
import time
from pathlib import Path
from typing import NamedTuple

from jeepney import DBusAddress, HeaderFields, Message, MessageFlag, MessageType
from jeepney import message_bus, new_error, new_method_call, new_method_return
from jeepney.io.blocking import open_dbus_connection

from Tests.Support.Python.helper_test_case import FaultTestCase
from Tests.Support.Python.policy_files import rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME, await_until, contents
from Tests.Support.Python.system_bus import LOCK, NAME, OBJECT

SERVICE = DBusAddress(OBJECT, bus_name=NAME, interface=NAME)
POLKIT = "org.freedesktop.PolicyKit1"
AUTHORITY = DBusAddress(f"/{POLKIT.replace('.', '/')}/Authority", bus_name=POLKIT, interface=f"{POLKIT}.Authority")


class Answer(NamedTuple):
    """The answer to a call: its results, or the last part of the error's name and its sentence."""

    results: tuple
    error: str = ""
    sentence: str = ""


DONE = Answer(())
OWN = rule({"CN": "Ana Example", "O": "Example Org"}, {"CN": "Example Authority"})
ANA, BEN = 2001, 2002


class Client:
    """A connection of the user with this number. It belongs to this process, which is root's again afterwards."""

    def __init__(self, user: int = 0):
        # Both sides of the authentication ask the kernel for the user.
        os.setresuid(user, user, 0)
        try:
            self._connection = open_dbus_connection("SYSTEM", enable_fds=True, auth_timeout=60)
        finally:
            os.setresuid(0, 0, 0)
        self.name = self._connection.unique_name
        self.close, self.reply = self._connection.close, self._connection.send
        self._answers: dict[int, Message] = {}
        self._calls: list[Message] = []

    def send(self, address: DBusAddress, method: str, signature: str | None, *arguments, interactive=False, files=()):
        """Sends a call, with these open files. Returns the number by which `answer` finds the answer."""
        call = new_method_call(address, method, signature, arguments)
        if interactive:
            call.header.flags |= MessageFlag.allow_interactive_authorization
        number = next(self._connection.outgoing_serial)
        if files:
            call.header.fields[HeaderFields.unix_fds] = len(files)
            socket.send_fds(self._connection.sock, [call.serialise(number)], files)
        else:
            self._connection.send(call, serial=number)
        return number

    def answer(self, number: int, seconds: float = 60) -> Answer:
        """Raises TimeoutError if there is none by then."""
        deadline = time.monotonic() + seconds
        while number not in self._answers:
            self._receive(deadline)
        message = self._answers.pop(number)
        if message.header.message_type == MessageType.error:
            error = message.header.fields[HeaderFields.error_name].rpartition(".")[2]
            return Answer((), error, message.body[0] if message.body else "")
        return Answer(message.body)

    def is_answered(self, number: int) -> bool:
        try:
            while number not in self._answers:
                self._receive(time.monotonic() + 0.1)
        except TimeoutError:
            pass
        return number in self._answers

    def call(self, *arguments, seconds: float = 60, **settings) -> Answer:
        return self.answer(self.send(*arguments, **settings), seconds)

    def await_call(self, method: str, matches=lambda call: True) -> Message:
        """The next such call of this method that somebody else makes to this client."""
        deadline = time.monotonic() + 60
        while True:
            for call in self._calls:
                if call.header.fields[HeaderFields.member] == method and matches(call):
                    self._calls.remove(call)
                    return call
            self._receive(deadline)

    def _receive(self, deadline: float) -> None:
        message = self._connection.receive(timeout=max(0.0, deadline - time.monotonic()))
        if message.header.message_type == MessageType.method_call:
            self._calls.append(message)
        elif number := message.header.fields.get(HeaderFields.reply_serial):
            self._answers[number] = message

    # The rule service

    def send_store(self, rule: str, browser: str = "Chromium", **settings) -> int:
        return self.send(SERVICE, "StoreRule", "ss", browser, rule, **settings)

    def store(self, rule: str, browser: str = "Chromium", seconds: float = 60, **settings) -> Answer:
        return self.answer(self.send_store(rule, browser, **settings), seconds)

    def clear(self, browser: str = "Chromium") -> Answer:
        return self.call(SERVICE, "ClearRule", "s", browser)

    def request(self, name: str) -> Answer:
        return self.call(message_bus, "RequestName", "su", name, 0)


class Dialog:
    """Somebody who sees polkit's questions about this process: its authentication agent, as polkit calls it."""

    def __init__(self, process: int | None = None):
        self._client = Client()
        self.close = self._client.close
        process = process or os.getpid()
        start = int(Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[19])
        subject = ("unix-process", {"pid": ("u", process), "start-time": ("t", start)})
        answer = self._client.call(AUTHORITY, "RegisterAuthenticationAgent", "(sa{sv})ss", subject, "C", "/dialog")
        if answer != DONE:
            raise RuntimeError(answer.sentence)

    def await_question(self) -> Message:
        """The dialog opens."""
        return self._client.await_call("BeginAuthentication")

    def await_withdrawal(self, question: Message) -> None:
        """polkit closes the dialog."""
        withdrawal = self._client.await_call("CancelAuthentication", lambda call: call.body[0] == question.body[4])
        self._client.reply(new_method_return(withdrawal))
        self.cancel(question)

    def cancel(self, question: Message) -> None:
        """The person closes the dialog."""
        self._client.reply(new_error(question, f"{POLKIT}.Error.Cancelled"))

    def confirm(self, question: Message) -> None:
        """The person gives an administrator's password. polkit refuses it if nobody asks any more."""
        cookie, administrators = question.body[4:6]
        self._client.call(AUTHORITY, "AuthenticationAgentResponse", "s(sa{sv})", cookie, administrators[0])
        self._client.reply(new_method_return(question))


def polkit_says_yes(call: Message) -> Message:
    """An answer to this call of polkit's."""
    return new_method_return(call, "(bba{ss})", ((True, False, {}),))


class RuleServiceTestCase(FaultTestCase):
    """polkit permits Ana, and nobody else."""

    users = {"ana": ANA, "ben": BEN}

    def setUp(self):
        super().setUp()
        self.bus = self.start_system_bus("ana", users=self.users)

    def client(self, user: int = 0) -> Client:
        client = Client(user)
        self.addCleanup(client.close)
        return client

    def open_dialogs(self, process: int | None = None) -> Dialog:
        dialog = Dialog(process)
        self.addCleanup(dialog.close)
        return dialog

    def policies(self) -> list[dict]:
        """All that anybody may have stored for either browser."""
        return [contents(folder) for folder in (CHROMIUM.policies.parents[1], GOOGLE_CHROME.policies.parents[2])]

    @contextlib.contextmanager
    def unchanged(self):
        before = self.policies()
        yield
        self.assertEqual(self.policies(), before)

    def refusals(self) -> list[str]:
        """The lines of the log about calls that failed."""
        return [line for line in self.bus.log().splitlines() if line.startswith("user ") and ": refused: " in line]

    @contextlib.contextmanager
    def holding_the_lock(self, operation: int = fcntl.LOCK_EX):
        LOCK.mkdir(mode=0o700, exist_ok=True)
        lock = os.open(LOCK, os.O_RDONLY)
        try:
            fcntl.flock(lock, operation)
            yield
        finally:
            os.close(lock)

    @staticmethod
    def await_waiting_for_the_lock() -> None:
        await_until(lambda: "-> FLOCK" in Path("/proc/locks").read_text(), "somebody to wait for the lock")
