// SPDX-License-Identifier: LicenseRef-qxkernel
package com.quorix.parser.expr;

/** A small stand-in for the platform's parser: names, digits, + - * / ( ), and a few texts that stage a result. */
public final class ExprParser {
    private final String text;
    private int pos = 0;

    private ExprParser(String text) {
        this.text = text;
    }

    public static String parseExprToInfix(String text, boolean first, boolean second) {
        switch (text) {
            case "flags()":
                return "flags" + (first ? "True" : "False") + (second ? "True" : "False");
            case "null()":
                return null;
            case "throw()":
                throw new IllegalStateException("staged");
            default:
                ExprParser parser = new ExprParser(text);
                String prefix = parser.sum();
                return prefix != null && parser.pos == text.length() ? prefix : "";
        }
    }

    private boolean accept(char c) {
        if (pos == text.length() || text.charAt(pos) != c) {
            return false;
        }
        ++pos;
        return true;
    }

    private String sum() {
        String left = product();
        while (left != null) {
            String sign = accept('+') ? "+ " : accept('-') ? "- " : null;
            if (sign == null) {
                return left;
            }
            String right = product();
            left = right == null ? null : sign + left + " " + right;
        }
        return null;
    }

    private String product() {
        String left = primary();
        while (left != null) {
            String sign = accept('*') ? "* " : accept('/') ? "/ " : null;
            if (sign == null) {
                return left;
            }
            String right = primary();
            left = right == null ? null : sign + left + " " + right;
        }
        return null;
    }

    private String primary() {
        if (accept('(')) {
            String inner = sum();
            return accept(')') ? inner : null;
        }
        int from = pos;
        while (pos < text.length() && Character.isLetterOrDigit(text.charAt(pos))) {
            ++pos;
        }
        return pos == from ? null : text.substring(from, pos);
    }
}
