# SPDX-License-Identifier: MIT
meta:
  id: serial_relay
  title: Packets between SerialPortHandler and its relay service
  license: MIT
  ks-version: '0.9'
  endian: be
doc: |
  One packet of the link, either way; the stream is packets without anything in between.
  protocol.md, beside this file, tells what they do.

  A packet that does not have the form ends in an exception: something is not valid, or the content
  ends too early. The stream then stands behind the packet all the same, at the next one. Behind a
  length that is not valid there is no way to go on.
params:
  - id: is_to_service
    type: bool
    doc: |
      The direction, as no packet tells it: true for what the relay service sends, false for what
      it receives.
seq:
  - id: length
    type: u2
    valid:
      min: 3
    doc: Bytes of the whole packet, these two included.
  - id: content
    type: content
    size: length - 2
types:
  content:
    seq:
      - id: command
        type: u1
        enum: command
        valid:
          any-of:
            - command::open
            - command::close
            - command::data
      - id: port_form
        type: u1
        enum: port_form
        valid:
          any-of:
            - port_form::numbered
            - port_form::named
      - id: port
        type:
          switch-on: port_form
          cases:
            'port_form::numbered': numbered_port
            'port_form::named': named_port
      - id: parameter
        type: u2
        if: command != command::data and _root.is_to_service and not _io.eof
        doc: Of an open or close, which may have one. The service does not look at it.
      - id: status
        type: u2
        if: command != command::data and not _root.is_to_service
        doc: |
          Of a reply. 0: done. 2: there is no such port, or it is not open. 3: open already. 4: the
          device is missing or cannot be used. 5: not closed. Any other is a failure, too.
      - id: block_count
        type: u1
        if: command == command::data
        doc: A notification has one block.
      - id: blocks
        type: block
        if: command == command::data
        repeat: expr
        repeat-expr: block_count
      - id: excess
        size-eos: true
        valid:
          expr: _.length == 0
        doc: Nothing stands behind the last field.
  numbered_port:
    doc: An adapter by its USB ids.
    seq:
      - id: vendor_id
        type: u2
      - id: product_id
        type: u2
  named_port:
    seq:
      - id: name_length
        type: u2
        valid:
          min: 1
      - id: name
        size: name_length
        terminator: 0
        doc: ASCII as a rule, without what stands behind a zero byte.
  block:
    seq:
      - id: kind
        type: u1
        doc: 2 in a notification; in a command any will do.
      - id: data_length
        type: u2
      - id: data
        size: data_length
enums:
  command:
    1: open
    2: close
    4: data
  port_form:
    1: numbered
    2: named
