# SPDX-License-Identifier: MIT
"""S3 for fsspec through boto3, as far as the cluster host uses a file system: Debian has no s3fs.
Workers import it as a preload. The server's address stands in DIFFUSEFILT_TEST_S3."""
import os
import threading

import boto3
import fsspec
from botocore.exceptions import ClientError

_local = threading.local()


class BotoS3(fsspec.AbstractFileSystem):
    protocol = "s3"

    @property
    def s3(self):
        if not hasattr(_local, "client"):
            _local.client = boto3.session.Session().client(
                "s3", endpoint_url=os.environ["DIFFUSEFILT_TEST_S3"], region_name="us-east-1",
                aws_access_key_id="S3RVER", aws_secret_access_key="S3RVER")
        return _local.client

    def _names(self, path):
        bucket, _, key = self._strip_protocol(path).partition("/")
        return {"Bucket": bucket, "Key": key}

    def cat_file(self, path, start=None, end=None, **_):
        try:
            return self.s3.get_object(**self._names(path))["Body"].read()[start:end]
        except ClientError as error:
            if error.response["Error"]["Code"] in ("NoSuchKey", "404"):
                raise FileNotFoundError(path) from None
            raise

    def pipe_file(self, path, value, **_):
        self.s3.put_object(Body=value, **self._names(path))

    def rm_file(self, path):
        self.s3.delete_object(**self._names(path))

    def find(self, path, **_):
        names = self._names(path)
        pages = self.s3.get_paginator("list_objects_v2").paginate(
            Bucket=names["Bucket"], Prefix=names["Key"] and names["Key"] + "/")
        return [f"{names['Bucket']}/{item['Key']}" for page in pages
                for item in page.get("Contents", [])]

    def ls(self, path, detail=False, **_):
        return self.find(path)

    def info(self, path, **_):
        path = self._strip_protocol(path)
        try:
            size = self.s3.head_object(**self._names(path))["ContentLength"]
            return {"name": path, "size": size, "type": "file"}
        except ClientError:
            if self.find(path):
                return {"name": path, "size": 0, "type": "directory"}
            raise FileNotFoundError(path) from None

    def rm(self, path, recursive=False, **_):
        for name in self.find(path):
            self.rm_file(name)


fsspec.register_implementation("s3", BotoS3, clobber=True)
