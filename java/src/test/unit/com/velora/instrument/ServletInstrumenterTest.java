package com.velora.instrument;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertNotNull;
import static org.junit.Assert.assertNull;
import static org.junit.Assert.assertSame;
import static org.junit.Assert.fail;

import org.junit.Before;
import org.junit.Test;

import java.io.ByteArrayOutputStream;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Proxy;
import java.net.URL;
import java.net.URLClassLoader;
import java.util.Arrays;
import java.util.List;

/** The rewritten HttpServlet, loaded under full verification and run with a probe that records its calls. */
public class ServletInstrumenterTest {
    private static final String SERVLET = "javax.servlet.http.HttpServlet";

    private ClassLoader loader;
    private Class<?> probe;

    /** Sees only the old API and the recording probe; defines HttpServlet rewritten. */
    private static final class World extends URLClassLoader {
        World() throws IOException {
            super(new URL[] {folder("velora.test.oldapi"), folder("velora.test.recording")},
                    ClassLoader.getSystemClassLoader().getParent());
        }

        private static URL folder(String property) throws IOException {
            return new File(System.getProperty(property)).toURI().toURL();
        }

        @Override
        protected Class<?> findClass(String name) throws ClassNotFoundException {
            if (!name.equals(SERVLET)) {
                return super.findClass(name);
            }
            try (InputStream in = getResourceAsStream(name.replace('.', '/') + ".class")) {
                byte[] rewritten = ServletInstrumenter.instrument(readAll(in), "javax");
                return defineClass(name, rewritten, 0, rewritten.length);
            } catch (IOException e) {
                throw new ClassNotFoundException(name, e);
            }
        }
    }

    @Before
    public void makeWorld() throws Exception {
        loader = new World();
        probe = loader.loadClass("com.velora.probe.servlet.ServletProbe");
    }

    @Test
    public void aRequestIsStartedAndFinished() throws Exception {
        serve(request("/app", "/app/early", null, "ann"), "Front");
        assertEquals(Arrays.asList("start Front /app null /app/early ann", "finish true"), calls());
    }

    @Test
    public void anIncludeIsKnownByItsOwnAddressAndAMissingConfigurationIsFine() throws Exception {
        serve(request("/app", "/app/early", "/app/part", null), null);
        assertEquals(Arrays.asList("start null /app /app/part /app/early null", "finish true"), calls());
    }

    @Test
    public void anExceptionIsReportedInsteadOfTheEndAndReachesTheCallerUnchanged() throws Exception {
        try {
            serve(request("", "/x", null, null), "Front");
            fail("the application's exception was swallowed");
        } catch (InvocationTargetException e) {
            assertSame(UnsupportedOperationException.class, e.getCause().getClass());
        }
        assertEquals(Arrays.asList("start Front  null /x null", "error nothing served true"), calls());
    }

    @Test
    public void switchedOffNothingIsCalledButTheEndWithFalse() throws Exception {
        probe.getField("on").set(null, false);
        serve(request("", "/early", null, null), "Front");
        assertEquals(Arrays.asList("finish false"), calls());
    }

    @Test
    public void aFailureOfOursDoesNotReachTheApplication() throws Exception {
        probe.getField("failStart").set(null, new IllegalStateException("ours"));
        serve(request("", "/early", null, null), "Front");
        assertEquals(Arrays.asList("failed ours", "finish false"), calls());
    }

    @Test
    public void somethingElseThanHttpIsLeftToTheServlet() throws Exception {
        Class<?> plain = loader.loadClass("javax.servlet.ServletRequest");
        Object request = Proxy.newProxyInstance(loader, new Class<?>[] {plain}, (p, m, a) -> null);
        try {
            serve(request, "Front");
            fail("a plain request was served");
        } catch (InvocationTargetException e) {
            assertEquals("non-HTTP request or response", e.getCause().getMessage());
        }
        assertEquals(Arrays.asList("error non-HTTP request or response false"), calls());
    }

    @Test
    public void aClassOfALaterJavaKeepsItsVersion() throws Exception {
        byte[] original = bytes("javax/servlet/http/HttpServlet.class");
        original[7] = 75;
        byte[] rewritten = ServletInstrumenter.instrument(original, "javax");
        assertNotNull(rewritten);
        assertEquals(75, rewritten[7]);
    }

    @Test
    public void aClassWithoutTheMethodIsLeftAlone() throws Exception {
        assertNull(ServletInstrumenter.instrument(bytes("javax/servlet/ServletConfig.class"), "javax"));
    }

    private void serve(Object request, String servletName) throws Exception {
        Class<?> type = loader.loadClass(SERVLET);
        Object servlet = loader.loadClass("javax.servlet.http.PlainServlet").getDeclaredConstructor().newInstance();
        if (servletName != null) {
            Class<?> config = loader.loadClass("javax.servlet.ServletConfig");
            type.getField("config").set(servlet,
                    Proxy.newProxyInstance(loader, new Class<?>[] {config}, (p, m, a) -> servletName));
        }
        type.getMethod("service", loader.loadClass("javax.servlet.ServletRequest"),
                loader.loadClass("javax.servlet.ServletResponse")).invoke(servlet, request, null);
    }

    private Object request(String context, String uri, String included, String user) throws Exception {
        Class<?> type = loader.loadClass("javax.servlet.http.HttpServletRequest");
        return Proxy.newProxyInstance(loader, new Class<?>[] {type}, (proxy, method, arguments) -> {
            switch (method.getName()) {
                case "getContextPath":
                    return context;
                case "getRequestURI":
                    return uri;
                case "getRemoteUser":
                    return user;
                default:
                    return "javax.servlet.include.request_uri".equals(arguments[0]) ? included : null;
            }
        });
    }

    private List<?> calls() throws Exception {
        return (List<?>) probe.getField("CALLS").get(null);
    }

    private byte[] bytes(String resource) throws IOException {
        try (InputStream in = loader.getResourceAsStream(resource)) {
            return readAll(in);
        }
    }

    private static byte[] readAll(InputStream in) throws IOException {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        byte[] part = new byte[4096];
        for (int n = in.read(part); n >= 0; n = in.read(part)) {
            out.write(part, 0, n);
        }
        return out.toByteArray();
    }
}
