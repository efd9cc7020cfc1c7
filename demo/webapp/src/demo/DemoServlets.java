package demo;

import jakarta.servlet.ServletException;
import jakarta.servlet.http.HttpServlet;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;

import java.io.IOException;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;

/** The servlets of the demonstration, each with one trait that its monitoring record must show. */
public final class DemoServlets {
    private DemoServlets() {
    }

    /** Answers at once. */
    public static final class Hello extends HttpServlet {
        private static final long serialVersionUID = 1L;

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response) throws IOException {
            response.setContentType("text/plain;charset=UTF-8");
            response.getWriter().println("Hello " + request.getRemoteUser());
        }
    }

    /** Waits: wall time without CPU time. Parameter ms, 50 by default, at most 10 s. */
    public static final class Slow extends HttpServlet {
        private static final long serialVersionUID = 1L;

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response) throws IOException {
            try {
                Thread.sleep(Numbers.parameter(request, "ms", 50, 10_000));
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
            response.getWriter().println("slept");
        }
    }

    /** Computes: CPU time. Parameter rounds, 2000 by default. */
    public static final class Burn extends HttpServlet {
        private static final long serialVersionUID = 1L;

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response) throws IOException {
            try {
                MessageDigest digest = MessageDigest.getInstance("SHA-256");
                byte[] block = new byte[8192];
                for (int i = Numbers.parameter(request, "rounds", 2000, 1_000_000); i > 0; i--) {
                    digest.update(block);
                }
                response.getWriter().println(digest.digest()[0]);
            } catch (NoSuchAlgorithmException e) {
                throw new IOException(e);
            }
        }
    }

    /** Includes /slow and then forwards to /hello: one request, three nested records. */
    public static final class Nested extends HttpServlet {
        private static final long serialVersionUID = 1L;

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response)
                throws ServletException, IOException {
            request.getRequestDispatcher("/slow?ms=20").include(request, response);
            request.getRequestDispatcher("/hello").forward(request, response);
        }
    }

    /** Fails: an error record with the exception's text. */
    public static final class Fail extends HttpServlet {
        private static final long serialVersionUID = 1L;

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response) throws ServletException {
            throw new ServletException("this servlet fails on purpose");
        }
    }

    private static final class Numbers {
        static int parameter(HttpServletRequest request, String name, int def, int most) {
            String text = request.getParameter(name);
            try {
                return text == null ? def : Math.max(0, Math.min(most, Integer.parseInt(text)));
            } catch (NumberFormatException e) {
                return def;
            }
        }
    }
}
