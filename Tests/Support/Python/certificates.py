# SPDX-License-Identifier: Apache-2.0
"""New certificate authorities, identities and NSS databases, made with the tools of OpenSSL and NSS."""

import hashlib
import itertools
import os
import re
import ssl
import subprocess
from dataclasses import dataclass
from pathlib import Path


LONG_AGO = "20200101000000Z"
FAR_AHEAD = "20991231235959Z"

AUTHORITY_SETTINGS = """
[ca]
default_ca = authority
[authority]
database = {folder}/index.txt
new_certs_dir = {folder}
rand_serial = yes
default_md = sha256
policy = any_name
preserve = yes
unique_subject = no
[any_name]
commonName = optional
organizationName = optional
organizationalUnitName = optional
localityName = optional
emailAddress = optional
[root]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[client]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = clientAuth
[server]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = serverAuth
subjectAltName = {server_names}
"""

Name = dict[str, str]  # from the short name of an attribute, such as CN or OU, to its value, in the certificate's order


def _run(command: str, *arguments, environment: dict[str, str] | None = None) -> None:
    """Runs a command, whose first words have no spaces in them."""
    done = subprocess.run(
        (*command.split(), *arguments),
        env=os.environ | (environment or {}),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        timeout=60,
    )
    if done.returncode != 0:
        raise RuntimeError(f"{command} failed: {done.stdout.decode(errors='replace')}")


def _subject_option(name: Name) -> bytes:
    attributes = (f"/{key}=" + re.sub(r"([\\/+])", r"\\\1", text) for key, text in name.items())
    return "".join(attributes).encode() or b"/"


@dataclass(frozen=True)
class Identity:
    name: Name
    certificate: Path
    key: Path

    @property
    def der(self) -> bytes:
        return ssl.PEM_cert_to_DER_cert(self.certificate.read_text())

    @property
    def fingerprint(self) -> str:
        return hashlib.sha256(self.der).hexdigest()


class Authority:
    def __init__(self, folder: Path, name: Name | None = None, server_names: tuple[str, ...] = ("localhost",)):
        self.name = {"CN": "Test Authority", "O": "Lumaret Test"} if name is None else name
        folder.mkdir()
        self._folder = folder
        self._numbers = itertools.count(1)
        self._settings = folder / "openssl.cnf"
        hosts = ", ".join(f"DNS:{server_name}" for server_name in server_names)
        self._settings.write_text(AUTHORITY_SETTINGS.format(folder=folder, server_names=hosts))
        (folder / "index.txt").touch()
        self.certificate = folder / "authority.crt"
        self._key = folder / "authority.key"
        self._sign(self.name, self._key, self.certificate, "root", FAR_AHEAD, "-selfsign", "-keyfile", self._key)

    def issue(self, name: Name, *, expires: str = FAR_AHEAD, extensions: str = "client") -> Identity:
        stem = self._folder / str(next(self._numbers))
        identity = Identity(name, stem.with_suffix(".crt"), stem.with_suffix(".key"))
        signer = ("-cert", self.certificate, "-keyfile", self._key)
        self._sign(name, identity.key, identity.certificate, extensions, expires, *signer)
        return identity

    def issue_for_server(self) -> Identity:
        return self.issue({"CN": "Test server"}, extensions="server")

    def issue_with_malformed_expiry(self, name: Name) -> Identity:
        """This breaks the signature, which is not verified when a certificate is only stored."""
        identity = self.issue(name)
        malformed = FAR_AHEAD.replace("1231", "1399")
        der = identity.der.replace(FAR_AHEAD.encode(), malformed.encode())
        identity.certificate.write_text(ssl.DER_cert_to_PEM_cert(der))
        return identity

    def _sign(self, name: Name, key: Path, certificate: Path, extensions: str, expires: str, *signer) -> None:
        request = certificate.with_suffix(".csr")
        new_key = "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"
        _run(f"openssl req -new {new_key} -utf8 -subj", _subject_option(name), "-keyout", key, "-out", request)
        start = LONG_AGO if expires > LONG_AGO else "19600101000000Z"
        _run(
            f"openssl ca -batch -notext -extensions {extensions} -startdate {start} -enddate {expires}",
            *("-config", self._settings, *signer, "-in", request, "-out", certificate),
        )


def bundle_of(identity: Identity, nickname: str | None = None, password: str = "") -> Path:
    """A new PKCS#12 file of the certificate and its key.

    NSS takes the certificates of one nickname for versions of each other; by default each has its own.
    """
    bundle = identity.certificate.with_suffix(".p12")
    _run(
        f"openssl pkcs12 -export -passout pass:{password}",
        *("-name", nickname or identity.fingerprint[:16], "-in", identity.certificate),
        *("-inkey", identity.key, "-out", bundle),
    )
    return bundle


class Database:
    """An NSS certificate database, as browsers keep it in the user's home."""

    def __init__(self, folder: Path, password: str = ""):
        folder.mkdir(parents=True)
        self.folder = folder
        self._password = folder.parent / "password"
        self._password.write_text(password + "\n")
        self._run("certutil -N")

    def _run(self, command: str, *arguments) -> None:
        _run(command, "-d", f"sql:{self.folder}", "-f", self._password, *arguments)

    def add(self, *identities: Identity, nickname: str | None = None) -> None:
        for identity in identities:
            _run(*self.import_command(identity, nickname))

    def import_command(self, identity: Identity, nickname: str | None = None) -> tuple:
        """The nickname is that of `bundle_of`."""
        bundle = bundle_of(identity, nickname)
        return "pk12util", "-i", bundle, "-d", f"sql:{self.folder}", "-k", self._password, "-W", ""

    def add_certificate(self, certificate: Path, nickname: str, trust: str = ",,") -> None:
        """Without a key."""
        self._run("certutil -A", "-n", nickname, "-t", trust, "-i", certificate)

    def trust(self, authority: Authority) -> None:
        self.add_certificate(authority.certificate, "test authority", "C,,")

    def name_module(self, library: str) -> None:
        """Adds a PKCS#11 module to the database. The library need not exist."""
        with open(self.folder / "pkcs11.txt", "a") as modules:
            modules.write(f"library={library}\nname=Token\n\n")


class Token:
    """A PKCS#11 token in software, for databases that name its module."""

    MODULE = "/usr/lib/softhsm/libsofthsm2.so"

    def __init__(self, folder: Path):
        self.folder = folder / "token"
        self.folder.mkdir()
        settings = folder / "softhsm2.conf"
        settings.write_text(f"directories.tokendir = {self.folder}\n")
        self.environment = {"SOFTHSM2_CONF": str(settings)}
        command = "softhsm2-util --init-token --free --label token --so-pin 12345678 --pin 1234"
        _run(command, environment=self.environment)

    def add(self, identity: Identity, database: Database) -> None:
        place = ("-d", f"sql:{database.folder}", "-h", "token")
        _run("pk12util -K 1234", "-i", bundle_of(identity), *place, "-W", "", environment=self.environment)
