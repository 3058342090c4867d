# SPDX-License-Identifier: Apache-2.0
"""New certificate authorities and identities, and NSS databases and tokens that hold them."""

import hashlib
import os
import ssl
import subprocess
from dataclasses import dataclass
from datetime import datetime
from pathlib import Path

from cryptography import x509
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.hazmat.primitives.serialization import Encoding, NoEncryption, PrivateFormat
from cryptography.x509.oid import ExtendedKeyUsageOID, NameOID

FAR_AHEAD = "20991231235959Z"
ATTRIBUTES = {
    "CN": NameOID.COMMON_NAME,
    "L": NameOID.LOCALITY_NAME,
    "O": NameOID.ORGANIZATION_NAME,
    "OU": NameOID.ORGANIZATIONAL_UNIT_NAME,
    "emailAddress": NameOID.EMAIL_ADDRESS,
}
Name = dict[str, str]  # from the short name of an attribute to its value, in the certificate's order


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
        self._server_names = x509.SubjectAlternativeName(map(x509.DNSName, server_names))
        self._key: ec.EllipticCurvePrivateKey | None = None
        is_authority = x509.BasicConstraints(ca=True, path_length=None)
        self.certificate = self._sign(self.name, FAR_AHEAD, is_authority).certificate

    def issue(self, name: Name, *, expires: str = FAR_AHEAD) -> Identity:
        return self._sign(name, expires, x509.ExtendedKeyUsage([ExtendedKeyUsageOID.CLIENT_AUTH]))

    def issue_for_server(self) -> Identity:
        usage = x509.ExtendedKeyUsage([ExtendedKeyUsageOID.SERVER_AUTH])
        return self._sign({"CN": "Test server"}, FAR_AHEAD, usage, self._server_names)

    def _sign(self, name: Name, expires: str, *extensions: x509.ExtensionType) -> Identity:
        """The first certificate is the authority's own."""
        key = ec.generate_private_key(ec.SECP256R1())
        self._key = self._key or key
        number = x509.random_serial_number()
        subject, issuer = (
            x509.Name(x509.NameAttribute(ATTRIBUTES[attribute], text) for attribute, text in each.items())
            for each in (name, self.name)
        )
        builder = x509.CertificateBuilder().subject_name(subject).issuer_name(issuer).serial_number(number)
        builder = builder.not_valid_before(datetime(1970, 1, 1)).public_key(key.public_key())
        builder = builder.not_valid_after(datetime.strptime(expires, "%Y%m%d%H%M%SZ"))
        for extension in extensions:
            builder = builder.add_extension(extension, critical=False)
        stem = self._folder / str(number)
        identity = Identity(name, stem.with_suffix(".crt"), stem.with_suffix(".key"))
        identity.certificate.write_bytes(builder.sign(self._key, hashes.SHA256()).public_bytes(Encoding.PEM))
        identity.key.write_bytes(key.private_bytes(Encoding.PEM, PrivateFormat.PKCS8, NoEncryption()))
        return identity


def bundle_of(identity: Identity, nickname: str | None = None, password: str = "") -> Path:
    """A new PKCS#12 file of the certificate and its key.

    NSS takes the certificates of one nickname for versions of each other; by default each has its own.
    """
    bundle = identity.certificate.with_suffix(".p12")
    options = ("-name", nickname or identity.fingerprint[:16], "-passout", f"pass:{password}", "-out", bundle)
    _run("openssl pkcs12 -export", "-in", identity.certificate, "-inkey", identity.key, *options)
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
        tokens, settings = folder / "token", folder / "softhsm2.conf"
        tokens.mkdir()
        settings.write_text(f"directories.tokendir = {tokens}\n")
        self.environment = {"SOFTHSM2_CONF": str(settings)}
        _run(
            "softhsm2-util --init-token --free --label token --so-pin 12345678 --pin 1234", environment=self.environment
        )

    def add(self, identity: Identity, database: Database) -> None:
        place = ("-d", f"sql:{database.folder}", "-h", "token")
        _run("pk12util -K 1234", "-i", bundle_of(identity), *place, "-W", "", environment=self.environment)
