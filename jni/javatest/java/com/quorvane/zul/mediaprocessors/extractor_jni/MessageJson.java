package com.quorvane.zul.mediaprocessors.extractor_jni;

import com.google.protobuf.ByteString;
import com.google.protobuf.Descriptors.FieldDescriptor;
import com.google.protobuf.Message;
import java.math.BigDecimal;
import java.math.MathContext;
import java.math.RoundingMode;

/**
 * A protobuf-java message as the C++ decoder writes it: one line, fields in schema
 * order under their schema names, floats as C's %.9g, NaN and infinities as null.
 * Written independently of the C++ code so that the two decoders can be compared.
 */
final class MessageJson {
  private MessageJson() {}

  static String of(Message message) {
    StringBuilder out = new StringBuilder();
    appendMessage(out, message);
    return out.toString();
  }

  private static void appendMessage(StringBuilder out, Message message) {
    out.append('{');
    boolean first = true;
    for (FieldDescriptor field : message.getDescriptorForType().getFields()) {
      if (!first) out.append(',');
      first = false;
      appendString(out, field.getName());
      out.append(':');
      if (field.isRepeated()) {
        out.append('[');
        for (int i = 0; i < message.getRepeatedFieldCount(field); i++) {
          if (i > 0) out.append(',');
          appendValue(out, field, message.getRepeatedField(field, i));
        }
        out.append(']');
      } else {
        appendValue(out, field, message.getField(field));
      }
    }
    out.append('}');
  }

  private static void appendValue(StringBuilder out, FieldDescriptor field, Object value) {
    switch (field.getType()) {
      case UINT32:
      case FIXED32:
        out.append(Integer.toUnsignedString((Integer) value));
        break;
      case UINT64:
      case FIXED64:
        out.append(Long.toUnsignedString((Long) value));
        break;
      case FLOAT:
        out.append(percentG9((Float) value));
        break;
      case DOUBLE:
        out.append(percentG9((Double) value));
        break;
      case STRING:
        appendString(out, (String) value);
        break;
      case BYTES: {
        ByteString bytes = (ByteString) value;
        out.append('[');
        for (int i = 0; i < bytes.size(); i++) {
          if (i > 0) out.append(',');
          out.append(bytes.byteAt(i) & 0xff);
        }
        out.append(']');
        break;
      }
      case MESSAGE:
        appendMessage(out, (Message) value);
        break;
      default:
        out.append(value);  // signed integers, bool
    }
  }

  /** C's printf("%.9g") of the value (exact binary value, rounded half to even). */
  static String percentG9(double value) {
    if (Double.isNaN(value) || Double.isInfinite(value)) return "null";
    if (value == 0) return (1 / value < 0) ? "-0" : "0";
    BigDecimal rounded = new BigDecimal(value).round(new MathContext(9, RoundingMode.HALF_EVEN));
    int exponent = rounded.precision() - rounded.scale() - 1;
    if (exponent < -4 || exponent >= 9) {
      String mantissa = rounded.movePointLeft(exponent).stripTrailingZeros().toPlainString();
      int magnitude = Math.abs(exponent);
      return mantissa + (exponent < 0 ? "e-" : "e+") + (magnitude < 10 ? "0" : "") + magnitude;
    }
    return rounded.stripTrailingZeros().toPlainString();
  }

  private static void appendString(StringBuilder out, String text) {
    out.append('"');
    for (char c : text.toCharArray()) {
      switch (c) {
        case '"': out.append("\\\""); break;
        case '\\': out.append("\\\\"); break;
        case '\n': out.append("\\n"); break;
        case '\r': out.append("\\r"); break;
        case '\t': out.append("\\t"); break;
        default:
          if (c < 0x20) out.append(String.format("\\u%04x", (int) c));
          else out.append(c);
      }
    }
    out.append('"');
  }
}
