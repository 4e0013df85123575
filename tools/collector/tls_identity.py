"""The collector's TLS identity: a throw-away CA and a loopback leaf certificate signed by it.

Made fresh at every start, so tests can trust exactly this CA and pin exactly these keys.
"""

import base64
import datetime
import hashlib
import ipaddress
import pathlib
from dataclasses import dataclass

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec, rsa
from cryptography.x509.oid import ExtendedKeyUsageOID, NameOID

# The SDK's pin check hashes one of these fixed headers followed by the bare key bits; each is
# the DER SubjectPublicKeyInfo of its key type up to the start of the key bits.
RSA_2048_KEY_HEADER = bytes.fromhex("30820122300d06092a864886f70d01010105000382010f00")

KEY_MAKERS = {
    "rsa2048": lambda: rsa.generate_private_key(public_exponent=65537, key_size=2048),
    "rsa4096": lambda: rsa.generate_private_key(public_exponent=65537, key_size=4096),
    "ec256": lambda: ec.generate_private_key(ec.SECP256R1()),
    "ec384": lambda: ec.generate_private_key(ec.SECP384R1()),
}

VALIDITY = datetime.timedelta(days=30)
# Tolerates a client clock that runs a little behind ours.
BACKDATING = datetime.timedelta(hours=1)


def bare_key_bits(public_key):
    """The key without its SubjectPublicKeyInfo wrapper: PKCS#1 for RSA, the point for EC."""
    if isinstance(public_key, rsa.RSAPublicKey):
        return public_key.public_bytes(serialization.Encoding.DER,
                                       serialization.PublicFormat.PKCS1)
    return public_key.public_bytes(serialization.Encoding.X962,
                                   serialization.PublicFormat.UncompressedPoint)


def sha256_base64(data):
    return base64.b64encode(hashlib.sha256(data).digest()).decode("ascii")


def spki_pin(public_key):
    return sha256_base64(public_key.public_bytes(serialization.Encoding.DER,
                                                 serialization.PublicFormat.SubjectPublicKeyInfo))


def rsa2048_prefix_pin(public_key):
    """What a pin check that always uses the RSA 2048 header computes for this key."""
    return sha256_base64(RSA_2048_KEY_HEADER + bare_key_bits(public_key))


@dataclass
class TlsIdentity:
    ca_path: pathlib.Path
    leaf_path: pathlib.Path
    leaf_key_path: pathlib.Path
    ca_certificate: x509.Certificate
    leaf_certificate: x509.Certificate

    def pins(self):
        ca_key = self.ca_certificate.public_key()
        leaf_key = self.leaf_certificate.public_key()
        return {
            "leaf_pin": spki_pin(leaf_key),
            "ca_pin": spki_pin(ca_key),
            "leaf_key_pin_rsa2048_prefix": rsa2048_prefix_pin(leaf_key),
            "ca_key_pin_rsa2048_prefix": rsa2048_prefix_pin(ca_key),
        }


def _name(common_name):
    return x509.Name([x509.NameAttribute(NameOID.COMMON_NAME, common_name),
                      x509.NameAttribute(NameOID.ORGANIZATION_NAME, "Tarvik collector")])


def _make_ca(key, now):
    public_key = key.public_key()
    return (x509.CertificateBuilder()
            .subject_name(_name("Tarvik collector test CA"))
            .issuer_name(_name("Tarvik collector test CA"))
            .public_key(public_key)
            .serial_number(x509.random_serial_number())
            .not_valid_before(now - BACKDATING)
            .not_valid_after(now + VALIDITY)
            .add_extension(x509.BasicConstraints(ca=True, path_length=0), critical=True)
            .add_extension(x509.KeyUsage(digital_signature=False, content_commitment=False,
                                         key_encipherment=False, data_encipherment=False,
                                         key_agreement=False, key_cert_sign=True, crl_sign=True,
                                         encipher_only=False, decipher_only=False),
                           critical=True)
            .add_extension(x509.SubjectKeyIdentifier.from_public_key(public_key), critical=False)
            .sign(key, hashes.SHA256()))


def _make_leaf(leaf_key, ca_key, ca_certificate, now):
    public_key = leaf_key.public_key()
    is_rsa = isinstance(public_key, rsa.RSAPublicKey)
    return (x509.CertificateBuilder()
            .subject_name(_name("localhost"))
            .issuer_name(ca_certificate.subject)
            .public_key(public_key)
            .serial_number(x509.random_serial_number())
            .not_valid_before(now - BACKDATING)
            .not_valid_after(now + VALIDITY)
            .add_extension(x509.SubjectAlternativeName([
                x509.DNSName("localhost"),
                x509.IPAddress(ipaddress.ip_address("127.0.0.1")),
                x509.IPAddress(ipaddress.ip_address("::1")),
            ]), critical=False)
            .add_extension(x509.BasicConstraints(ca=False, path_length=None), critical=True)
            .add_extension(x509.KeyUsage(digital_signature=True, content_commitment=False,
                                         key_encipherment=is_rsa, data_encipherment=False,
                                         key_agreement=False, key_cert_sign=False,
                                         crl_sign=False, encipher_only=False,
                                         decipher_only=False),
                           critical=True)
            .add_extension(x509.ExtendedKeyUsage([ExtendedKeyUsageOID.SERVER_AUTH]),
                           critical=False)
            .add_extension(x509.SubjectKeyIdentifier.from_public_key(public_key), critical=False)
            .add_extension(x509.AuthorityKeyIdentifier.from_issuer_public_key(
                ca_key.public_key()), critical=False)
            .sign(ca_key, hashes.SHA256()))


def _write_private(path, data):
    path.touch(mode=0o600, exist_ok=True)
    path.write_bytes(data)


def make_identity(folder, leaf_key_type):
    """Makes the CA and the leaf, writes ca.pem, leaf.pem and leaf-key.pem into `folder`."""
    folder = pathlib.Path(folder)
    now = datetime.datetime.now(datetime.timezone.utc)
    # An EC CA keeps start-up quick; the leaf carries the key type under test.
    ca_key = KEY_MAKERS["ec256"]()
    ca_certificate = _make_ca(ca_key, now)
    leaf_key = KEY_MAKERS[leaf_key_type]()
    leaf_certificate = _make_leaf(leaf_key, ca_key, ca_certificate, now)

    identity = TlsIdentity(folder / "ca.pem", folder / "leaf.pem", folder / "leaf-key.pem",
                           ca_certificate, leaf_certificate)
    identity.ca_path.write_bytes(ca_certificate.public_bytes(serialization.Encoding.PEM))
    identity.leaf_path.write_bytes(leaf_certificate.public_bytes(serialization.Encoding.PEM))
    _write_private(identity.leaf_key_path, leaf_key.private_bytes(
        serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
        serialization.NoEncryption()))
    return identity
