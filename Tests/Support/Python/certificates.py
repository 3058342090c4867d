# SPDX-License-Identifier: Apache-2.0
"""New certificate authorities, identities and NSS databases, made with the tools of OpenSSL and NSS."""

import hashlib
import itertools
import os
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


def _run(*command, environment: dict[str, str] | None = None) -> None:
    done = subprocess.run(
        command,
        env=os.environ | (environment or {}),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        timeout=60,
    )
    if done.returncode != 0:
        raise RuntimeError(f"{command[0]} {command[1]} failed: {done.stdout.decode(errors='replace')}")


def _subject_option(name: Name) -> bytes:
    def escaped(text: str) -> str:
        return "".join("\\" + character if character in "\\/+" else character for character in text)

    return "".join(f"/{key}={escaped(text)}" for key, text in name.items()).encode() or b"/"


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
        self._settings.write_text(
            AUTHORITY_SETTINGS.format(
                folder=folder, server_names=", ".join(f"DNS:{server_name}" for server_name in server_names)
            )
        )
        (folder / "index.txt").touch()
        self.certificate = folder / "authority.crt"
        self._key = folder / "authority.key"
        self._sign(self.name, self._key, self.certificate, "root", FAR_AHEAD, "-selfsign", "-keyfile", self._key)

    def issue(self, name: Name, *, expires: str = FAR_AHEAD, extensions: str = "client") -> Identity:
        number = next(self._numbers)
        identity = Identity(name, self._folder / f"{number}.crt", self._folder / f"{number}.key")
        self._sign(
            name,
            identity.key,
            identity.certificate,
            extensions,
            expires,
            "-cert",
            self.certificate,
            "-keyfile",
            self._key,
        )
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
        _run(
            "openssl",
            "req",
            "-new",
            "-newkey",
            "ec",
            "-pkeyopt",
            "ec_paramgen_curve:P-256",
            "-nodes",
            "-utf8",
            "-subj",
            _subject_option(name),
            "-keyout",
            key,
            "-out",
            request,
        )
        _run(
            "openssl",
            "ca",
            "-batch",
            "-notext",
            "-config",
            self._settings,
            "-extensions",
            extensions,
            "-startdate",
            LONG_AGO if expires > LONG_AGO else "19600101000000Z",
            "-enddate",
            expires,
            *signer,
            "-in",
            request,
            "-out",
            certificate,
        )


def bundle_of(identity: Identity, nickname: str | None = None, password: str = "") -> Path:
    """A new PKCS#12 file of the certificate and its key.

    NSS takes the certificates of one nickname for versions of each other; by default each has its own.
    """
    bundle = identity.certificate.with_suffix(".p12")
    _run(
        "openssl",
        "pkcs12",
        "-export",
        "-in",
        identity.certificate,
        "-inkey",
        identity.key,
        "-name",
        nickname or identity.fingerprint[:16],
        "-passout",
        f"pass:{password}",
        "-out",
        bundle,
    )
    return bundle


class Database:
    """An NSS certificate database, as browsers keep it in the user's home."""

    def __init__(self, folder: Path, password: str = ""):
        folder.mkdir(parents=True)
        self.folder = folder
        self._password = folder.parent / "password"
        self._password.write_text(password + "\n")
        _run("certutil", "-N", "-d", f"sql:{folder}", "-f", self._password)

    def add(self, *identities: Identity) -> None:
        for identity in identities:
            _run(*self.import_command(identity))

    def import_command(self, identity: Identity) -> tuple:
        return "pk12util", "-i", bundle_of(identity), "-d", f"sql:{self.folder}", "-k", self._password, "-W", ""

    def name_module(self, library: str) -> None:
        """Adds a PKCS#11 module to the database. The library need not exist."""
        with open(self.folder / "pkcs11.txt", "a") as modules:
            modules.write(f"library={library}\nname=Token\n\n")

    def trust(self, authority: Authority) -> None:
        _run(
            "certutil",
            "-A",
            "-d",
            f"sql:{self.folder}",
            "-f",
            self._password,
            "-n",
            "test authority",
            "-t",
            "C,,",
            "-i",
            authority.certificate,
        )


class Token:
    """A PKCS#11 token in software, for databases that name its module."""

    MODULE = "/usr/lib/softhsm/libsofthsm2.so"

    def __init__(self, folder: Path):
        self.folder = folder / "token"
        self.folder.mkdir()
        settings = folder / "softhsm2.conf"
        settings.write_text(f"directories.tokendir = {self.folder}\n")
        self.environment = {"SOFTHSM2_CONF": str(settings)}
        self._pin = folder / "pin"
        self._pin.write_text("1234\n")
        _run(
            "softhsm2-util",
            "--init-token",
            "--free",
            "--label",
            "token",
            "--so-pin",
            "12345678",
            "--pin",
            "1234",
            environment=self.environment,
        )

    def add(self, identity: Identity, database: Database) -> None:
        _run(
            "pk12util",
            "-i",
            bundle_of(identity),
            "-d",
            f"sql:{database.folder}",
            "-h",
            "token",
            "-k",
            self._pin,
            "-W",
            "",
            environment=self.environment,
        )
