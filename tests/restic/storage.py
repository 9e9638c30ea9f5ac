"""Object storage on loopback. storage.py PORT strict|open: says "KEY:SECRET" once it listens.

With "strict" it checks who asks, which it gets right for single objects alone, not for lists."""

import sys
import threading
from urllib.parse import quote

import boto3
from moto import settings
from moto.core.responses import ActionAuthenticatorMixin
from moto.server import ThreadedMotoServer

port = int(sys.argv[1])
server = ThreadedMotoServer(ip_address="127.0.0.1", port=port, verbose=False)
server.start()
place = {"endpoint_url": f"http://127.0.0.1:{port}", "region_name": "us-east-1",
         "aws_access_key_id": "first", "aws_secret_access_key": "first"}
iam = boto3.client("iam", **place)
iam.create_user(UserName="me")
iam.put_user_policy(UserName="me", PolicyName="all", PolicyDocument='{"Version": "2012-10-17", "Statement":'
                    ' [{"Effect": "Allow", "Action": "s3:*", "Resource": "*"}]}')
key = iam.create_access_key(UserName="me")["AccessKey"]
boto3.client("s3", **place).create_bucket(Bucket="backup")
if sys.argv[2] == "strict":
    settings.INITIAL_NO_AUTH_ACTION_COUNT = 0.0
    ActionAuthenticatorMixin.request_count = 0
print(f"{key['AccessKeyId']}:{quote(key['SecretAccessKey'], safe='')}", flush=True)
threading.Event().wait()
